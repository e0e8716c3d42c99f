"""Key files and volume data made and opened without any code of the program: the ciphers and their modes are nettle's."""

import ctypes
import os
import struct
import zlib

import quilla

SECTOR = 512
KEY_FILE_SIZE = 760
STRENGTH_TAG = 0x51544B44

NETTLE = ctypes.CDLL("libnettle.so.8")
ARGON2 = ctypes.CDLL("libargon2.so.1")
CONTEXT_SIZE = 16384  # larger than any of the library's contexts


class BlockCipher:
    """One of nettle's ciphers with its key."""

    def __init__(self, cipher, key):
        self.name, setter, self.block = (("cast128", "cast5", 8) if cipher == quilla.CIPHER_CAST128 else
                                         ("twofish", "twofish", 16))
        self.context = ctypes.create_string_buffer(CONTEXT_SIZE)
        self.call(f"{setter}_set_key", self.context, len(key), key)

    @staticmethod
    def call(name, *arguments):
        getattr(NETTLE, f"nettle_{name}")(*(ctypes.c_size_t(a) if isinstance(a, int) else a for a in arguments))

    def function(self, direction):
        return getattr(NETTLE, f"nettle_{self.name}_{direction}")

    def encrypt_blocks(self, data):
        out = ctypes.create_string_buffer(len(data))
        self.call(f"{self.name}_encrypt", self.context, len(data), out, data)
        return out.raw

    def chain(self, mode, direction, iv, data):
        """Cipher block chaining ("cbc") or cipher feedback ("cfb"), which enciphers blocks in both directions."""
        function = self.function("encrypt" if mode == "cfb" else direction)
        out = ctypes.create_string_buffer(len(data))
        register = ctypes.create_string_buffer(iv, self.block)
        self.call(f"{mode}_{direction}", self.context, function, self.block, register, len(data), out, data)
        return out.raw

    def tweak(self, direction, tweak_cipher, number, data):
        """XTS of one sector."""
        out = ctypes.create_string_buffer(len(data))
        functions = [self.function(way) for way in dict.fromkeys((direction, "encrypt"))]  # of the data, of the tweak
        self.call(f"xts_{direction}_message", self.context, tweak_cipher.context, *functions,
                  struct.pack("<QQ", number, 0), len(data), out, data)
        return out.raw


# The key file


def wrapping_key(password, strength):
    """What the chunk of strength makes of a password key, by libargon2."""
    salt, memory, passes, lanes, algorithm = struct.unpack("<32s4I", strength)
    tag = ctypes.create_string_buffer(20)
    key = quilla.password_key(password)
    if algorithm != 1 or ARGON2.argon2id_hash_raw(passes, memory, lanes, key, ctypes.c_size_t(len(key)), salt,
                                                  ctypes.c_size_t(len(salt)), tag, ctypes.c_size_t(len(tag))) != 0:
        raise quilla.Failure("strength that libargon2 does not understand")
    return tag.raw


def crypt_key_block(direction, cipher, password, iv, block, strength=b""):
    """CAST-128 by cipher feedback, Twofish by cipher block chaining; without a cipher it stays as it is."""
    key = wrapping_key(password, strength) if strength else quilla.password_key(password)
    if cipher == quilla.CIPHER_CAST128:
        return BlockCipher(cipher, key[:16]).chain("cfb", direction, iv[:8], block)
    if cipher == quilla.CIPHER_TWOFISH:
        return BlockCipher(cipher, key + bytes(4)).chain("cbc", direction, iv[:16], block)
    return block


def chunk_header(tag, param, length):
    return struct.pack("<IHHQ", tag, param, 0, length)


def build_key_file(cipher, password, master, iv, timeout, strength=b""):
    """The 760 bytes of a key file, or 824 with strength; iv are the 20 bytes stored with the key block."""
    block = crypt_key_block("encrypt", cipher, password, iv, master, strength) + struct.pack("<I", zlib.crc32(master)) + iv
    return (chunk_header(0, 0, 16)
            + chunk_header(1, 0, 24) + struct.pack("<IHHQII", 0, 65, 0, timeout, 0, 0)
            + chunk_header(2, cipher, 152) + block
            + chunk_header(3, 2, 520) + bytes(520)
            + (chunk_header(STRENGTH_TAG, 0, 48) + strength if strength else b""))


def parse_key_file(data, cipher, password):
    """(master key, iv, time-out), or a Failure."""
    if len(data) not in (KEY_FILE_SIZE, KEY_FILE_SIZE + 64):
        raise quilla.Failure(f"a key file of {len(data)} bytes")
    strength = data[KEY_FILE_SIZE + 16:]
    timeout, = struct.unpack_from("<Q", data, 40)
    sealed, check, iv = struct.unpack_from("<128sI20s", data, 72)
    master = crypt_key_block("decrypt", cipher, password, iv, sealed, strength)
    if zlib.crc32(master) != check:
        raise quilla.Failure("the key block does not open with the password")
    if data != build_key_file(cipher, password, master, iv, timeout, strength):
        raise quilla.Failure("bytes outside the key block are not as documented")
    return master, iv, timeout


def make_files(volume):
    """Makes a volume's files without the program and returns the data key."""
    with open(volume.raw, "xb") as raw:
        raw.truncate(volume.size)
    if volume.cipher == quilla.CIPHER_NONE:
        return bytes(32)
    master = os.urandom(128)
    volume.key.write_bytes(build_key_file(volume.cipher, volume.password, master, os.urandom(20), volume.timeout))
    return master[:32]


# The volume's data


class SectorCipher:
    """What stands in the data file for a sector, from the 32-byte data key."""

    def __init__(self, cipher, key):
        self.is_twofish = cipher == quilla.CIPHER_TWOFISH
        self.data = BlockCipher(cipher, key if self.is_twofish else key[:16])
        tweak_key = self.data.encrypt_blocks(b"QuillaTweakKey 1QuillaTweakKey 2") if self.is_twofish else key[16:]
        self.numbers = BlockCipher(cipher, tweak_key)

    def crypt(self, direction, number, sector):
        if self.is_twofish:
            return self.data.tweak(direction, self.numbers, number, sector)
        return self.data.chain("cbc", direction, self.numbers.encrypt_blocks(struct.pack("<Q", number)), sector)
