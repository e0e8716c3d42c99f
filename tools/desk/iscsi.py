"""A small iSCSI initiator in plain Python: a session on unit 0 that reads and writes."""

import hashlib
import struct

import quilla
from stream import Stream

COMMAND, LOGIN, DATA_IN, RESPONSE = 0x01, 0x43, 0x25, 0x21
IMMEDIATE_TRANSIT, FINAL_READ, FINAL_WRITE = 0x80, 0xC0, 0xA0
HAS_STATUS = 0x01
READ_10, WRITE_10 = 0x28, 0x2A
SECTOR = 512


class Client(Stream):
    """A session, told apart from others of the machine by its number. The address is that of a file SECn.iscsi."""

    def __init__(self, address, number=0):
        keys = dict(line.split("=", 1) for line in address.split())
        self.session = struct.pack(">BBHH", 0x80, 0, 0, number)
        super().__init__(keys["address"], int(keys["port"]))
        self.command, self.tag = 1, 0
        self.login(0x01, {"InitiatorName": "iqn.2026-11.local.test:desk", "TargetName": keys["target"],
                          "SessionType": "Normal", "AuthMethod": "CHAP", "CHAP_A": "5"})
        proof = hashlib.md5(bytes([int(self.answer["CHAP_I"])]) + keys["secret"].encode()
                            + bytes.fromhex(self.answer["CHAP_C"][2:])).hexdigest()
        self.login(0x81, {"CHAP_N": keys["user"], "CHAP_R": f"0x{proof}"})
        self.login(0x87, {"InitialR2T": "No", "ImmediateData": "Yes", "FirstBurstLength": 262144,
                          "MaxRecvDataSegmentLength": 262144})

    def receive_unit(self):
        """The next unit: its header and its data."""
        header = self.receive(48)
        length = int.from_bytes(header[5:8], "big")
        return header, self.receive((length + 3) // 4 * 4)[:length]

    def login(self, flags, keys):
        text = "".join(f"{key}={value}\0" for key, value in keys.items()).encode()
        self.connection.sendall(struct.pack(">BBHI6sHIIII16x", LOGIN, flags, 0, len(text), self.session, 0, 0, 0, 1, 0)
                                + text + bytes(-len(text) % 4))
        header, answer = self.receive_unit()
        if header[36:38] != bytes(2):
            raise quilla.Failure(f"login refused with {header[36:38].hex()}")
        self.answer = dict(pair.split("=", 1) for pair in answer.decode().split("\0") if pair)

    def send_command(self, flags, opcode, offset, length, payload=b""):
        self.tag += 1
        block = struct.pack(">BBIBHB6x", opcode, 0, offset // SECTOR, 0, length // SECTOR, 0)
        self.connection.sendall(struct.pack(">BBHI8xIIII", COMMAND, flags, 0, len(payload), self.tag, length,
                                            self.command, 0) + block + payload)
        self.command += 1

    def receive_reply(self):
        """Takes the reply to the oldest command that has none; the target keeps their order."""
        data = b""
        while True:
            header, piece = self.receive_unit()
            if header[0] == DATA_IN:
                data += piece
            if header[0] == RESPONSE or (header[0] == DATA_IN and header[1] & HAS_STATUS):
                if header[3]:
                    raise quilla.Failure(f"status {header[3]}, sense {piece.hex()}")
                return data
            if header[0] != DATA_IN:
                raise quilla.Failure(f"a unit {header[0]:#x} in a reply's place")

    def read(self, offset, length):
        self.send_command(FINAL_READ, READ_10, offset, length)
        return self.receive_reply()

    def send_write(self, offset, data):
        self.send_command(FINAL_WRITE, WRITE_10, offset, len(data), data)
