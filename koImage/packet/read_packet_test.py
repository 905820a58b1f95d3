"""examples/read_packet.py against the golden files: read_packet_test.py EXAMPLES GOLDEN"""

import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

examples, golden = (pathlib.Path(argument) for argument in sys.argv[1:3])
sys.path.insert(0, str(examples))
sys.dont_write_bytecode = True
import read_packet


def listing(data):
    """The exit code and the text that the program prints for a file."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(data)
        file.flush()
        out, error = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(error):
            code = read_packet.main([file.name])
    return code, out.getvalue()


class ReadPacket(unittest.TestCase):
    def test_lists_every_golden_file_as_the_library_does(self):
        files = sorted(golden.glob("*.packets"))
        self.assertGreaterEqual(len(files), 4)
        for file in files:
            with self.subTest(file.name):
                self.assertEqual(listing(file.read_bytes()), (0, file.with_suffix(".txt").read_text()))

    def test_notices_every_damaged_byte(self):
        data = (golden / "values.packets").read_bytes()
        for i in range(len(data)):
            damaged = bytearray(data)
            damaged[i] ^= 0x40
            self.assertEqual(listing(damaged)[0], 1, f"byte {i}")

    def test_notices_every_cut(self):
        data = (golden / "values.packets").read_bytes()
        for i in range(len(data)):
            self.assertEqual(listing(data[:i])[0], 1, f"byte {i}")
        self.assertEqual(listing(data + b"\0")[0], 1)

    def test_has_the_check_value_of_the_checksum(self):
        self.assertEqual(read_packet.crc32c(b"123456789"), 0xE3069283)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
