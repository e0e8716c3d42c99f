"""Key files and volume data made and opened without any code of the program: ciphers by nettle and libgcrypt.

nettle knows Twofish with 192-bit keys, which key files need; libgcrypt knows whole modes, XTS and CBC.
"""

import ctypes
import functools
import os
import struct
import zlib

import quilla

SECTOR = 512
KEY_FILE_SIZE = 760


@functools.cache
def nettle():
    return ctypes.CDLL("libnettle.so.8")


@functools.cache
def gcrypt():
    library = ctypes.CDLL("libgcrypt.so.20")
    library.gcry_check_version.restype = ctypes.c_char_p
    if not library.gcry_check_version(None):
        raise quilla.Failure("libgcrypt does not start")
    return library


class NettleCipher:
    """One block at a time."""

    CONTEXT_SIZE = 16384  # larger than any of the library's contexts

    def __init__(self, name, key, block):
        self.name, self.block = name, block
        self.context = ctypes.create_string_buffer(self.CONTEXT_SIZE)
        if name == "cast128":
            nettle().nettle_cast5_set_key(self.context, ctypes.c_size_t(len(key)), key)
        else:
            nettle().nettle_twofish_set_key(self.context, ctypes.c_size_t(len(key)), key)

    def _run(self, direction, data):
        out = ctypes.create_string_buffer(len(data))
        getattr(nettle(), f"nettle_{self.name}_{direction}")(self.context, ctypes.c_size_t(len(data)), out, data)
        return out.raw

    def encrypt(self, data):
        return self._run("encrypt", data)

    def decrypt(self, data):
        return self._run("decrypt", data)


class GcryptCipher:
    """A whole mode over a buffer."""

    CAST5, TWOFISH = 3, 10
    CBC, XTS = 3, 13

    def __init__(self, algorithm, mode, key):
        self.handle = ctypes.c_void_p()
        self._check(gcrypt().gcry_cipher_open(ctypes.byref(self.handle), algorithm, mode, 0))
        self._check(gcrypt().gcry_cipher_setkey(self.handle, key, ctypes.c_size_t(len(key))))

    def _check(self, error):
        if error & 0xFFFF:
            raise quilla.Failure(f"libgcrypt error {error & 0xFFFF}")

    def _run(self, function, data, iv):
        out = ctypes.create_string_buffer(len(data))
        self._check(gcrypt().gcry_cipher_setiv(self.handle, iv, ctypes.c_size_t(len(iv))))
        self._check(function(self.handle, out, ctypes.c_size_t(len(data)), data, ctypes.c_size_t(len(data))))
        return out.raw

    def encrypt(self, data, iv):
        return self._run(gcrypt().gcry_cipher_encrypt, data, iv)

    def decrypt(self, data, iv):
        return self._run(gcrypt().gcry_cipher_decrypt, data, iv)

    def __del__(self):
        gcrypt().gcry_cipher_close(self.handle)


def exclusive_or(a, b):
    return bytes(x ^ y for x, y in zip(a, b))


# The key block: 128 bytes under the password key


def key_block_cipher(cipher, password):
    key = quilla.password_key(password)
    if cipher == quilla.CIPHER_CAST128:
        return NettleCipher("cast128", key[:16], 8)
    return NettleCipher("twofish", key + bytes(4), 16)


def seal_master_key(cipher, password, master, iv):
    """CAST-128 by cipher feedback, Twofish by cipher block chaining; without a cipher it stays as it is."""
    if cipher == quilla.CIPHER_NONE:
        return master
    keyed = key_block_cipher(cipher, password)
    register, out = iv[:keyed.block], b""
    for i in range(0, len(master), keyed.block):
        block = master[i:i + keyed.block]
        if cipher == quilla.CIPHER_CAST128:
            register = exclusive_or(keyed.encrypt(register), block)
        else:
            register = keyed.encrypt(exclusive_or(register, block))
        out += register
    return out


def open_master_key(cipher, password, sealed, iv):
    keyed = key_block_cipher(cipher, password)
    register, out = iv[:keyed.block], b""
    for i in range(0, len(sealed), keyed.block):
        block = sealed[i:i + keyed.block]
        if cipher == quilla.CIPHER_CAST128:
            out += exclusive_or(keyed.encrypt(register), block)
        else:
            out += exclusive_or(keyed.decrypt(block), register)
        register = block
    return out


# The key file


def chunk_header(tag, param, length):
    return struct.pack("<IHHQ", tag, param, 0, length)


def build_key_file(cipher, password, master, iv, timeout, option=0):
    """The 760 bytes of a key file; iv are the 20 bytes stored with the key block."""
    block = seal_master_key(cipher, password, master, iv) + struct.pack("<I", zlib.crc32(master)) + iv
    return (chunk_header(0, 0, 16)
            + chunk_header(1, 0, 24) + struct.pack("<IHHQII", 0, 65, 0, timeout, option, 0)
            + chunk_header(2, cipher, 152) + block
            + chunk_header(3, 2, 520) + bytes(520))


def parse_key_file(data, cipher, password):
    """(master key, iv, time-out, option word), or a Failure that names what is wrong."""
    def expect(offset, wanted, what):
        if data[offset:offset + len(wanted)] != wanted:
            raise quilla.Failure(f"{what} at {offset}: {data[offset:offset + len(wanted)].hex()}, not {wanted.hex()}")

    if len(data) != KEY_FILE_SIZE:
        raise quilla.Failure(f"a key file of {len(data)} bytes")
    expect(0, chunk_header(0, 0, 16), "file header")
    expect(16, chunk_header(1, 0, 24), "settings header")
    expect(32, struct.pack("<IHH", 0, 65, 0), "settings")
    timeout, option = struct.unpack_from("<QI", data, 40)
    expect(52, bytes(4), "settings")
    expect(56, chunk_header(2, cipher, 152), "key block header")
    sealed, (check,), iv = data[72:200], struct.unpack_from("<I", data, 200), data[204:224]
    expect(224, chunk_header(3, 2, 520) + bytes(520), "reserved chunk")
    master = open_master_key(cipher, password, sealed, iv)
    if zlib.crc32(master) != check:
        raise quilla.Failure("the key block does not open with the password")
    return master, iv, timeout, option


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

    def __init__(self, cipher, data_key):
        self.cipher = cipher
        if cipher == quilla.CIPHER_TWOFISH:
            keyed = NettleCipher("twofish", data_key, 16)
            tweak_key = keyed.encrypt(b"QuillaTweakKey 1QuillaTweakKey 2")
            self.mode = GcryptCipher(GcryptCipher.TWOFISH, GcryptCipher.XTS, data_key + tweak_key)
        elif cipher == quilla.CIPHER_CAST128:
            self.mode = GcryptCipher(GcryptCipher.CAST5, GcryptCipher.CBC, data_key[:16])
            self.iv_cipher = NettleCipher("cast128", data_key[16:32], 8)

    def _iv(self, number):
        if self.cipher == quilla.CIPHER_TWOFISH:
            return struct.pack("<QQ", number, 0)
        return self.iv_cipher.encrypt(struct.pack("<Q", number))

    def encrypt(self, number, sector):
        return sector if self.cipher == quilla.CIPHER_NONE else self.mode.encrypt(sector, self._iv(number))

    def decrypt(self, number, sector):
        return sector if self.cipher == quilla.CIPHER_NONE else self.mode.decrypt(sector, self._iv(number))
