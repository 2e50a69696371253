"""The other ends of the lab's sockets: mgmtd's control socket and the one-line sockets of fpd and the peers.

Sockets are named by paths of the host: inside a lab's folder tree they can be reached from outside, by
/proc/PID/root of its first process.
"""
import json
import socket
import struct

HEADER = struct.Struct(">II")
SECONDS = 120  # for any answer


class Refused(Exception):
    """mgmtd refused a request; the error's members are those of the answer."""

    def __init__(self, error):
        super().__init__(f"{error.get('path', '')}: {error.get('reason', '')}")
        self.error = error


class Broken(Exception):
    """The connection ended."""


def _connect(path):
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(SECONDS)
    try:
        connection.connect(str(path))
    except OSError as error:
        connection.close()
        raise Broken(f"{path}: {error}") from error
    return connection


class Control:
    """A session of mgmtd's. Connects with its first request."""

    def __init__(self, path):
        self._path, self._connection, self._id = path, None, 0

    def close(self):
        if self._connection:
            self._connection.close()
        self._connection = None

    def ask(self, op, body=None, **members):
        """The answer's body. Raises Refused, and Broken after which a new request connects anew."""
        self._id += 1
        head = json.dumps({"id": self._id, "op": op, **members}).encode()
        data = b"" if body is None else json.dumps(body).encode()
        try:
            if self._connection is None:
                self._connection = _connect(self._path)
            self._connection.sendall(HEADER.pack(len(head), len(data)) + head + data)
            answer, text = self._frame()
            while answer.get("more"):
                answer, text = self._frame()
        except OSError as error:
            self.close()
            raise Broken(str(error)) from error
        if not answer["ok"]:
            raise Refused(answer["error"])
        return json.loads(text) if text else {}

    def _frame(self):
        head_size, body_size = HEADER.unpack(self._read(HEADER.size))
        return json.loads(self._read(head_size)), self._read(body_size)

    def _read(self, size):
        data = b""
        while len(data) < size:
            piece = self._connection.recv(size - len(data))
            if not piece:
                raise OSError("the connection was closed")
            data += piece
        return data


class Lines:
    """A socket that answers a line with a line of JSON. Connects with its first request."""

    def __init__(self, path):
        self._path, self._file = path, None

    def close(self):
        if self._file:
            self._file.close()
        self._file = None

    def ask(self, request):
        """`request`: words, or an object. The answer, which may be a refusal."""
        try:
            if self._file is None:
                with _connect(self._path) as connection:
                    self._file = connection.makefile("rw", encoding="utf-8")
            self._file.write((request if isinstance(request, str) else json.dumps(request)) + "\n")
            self._file.flush()
            line = self._file.readline()
        except OSError as error:
            self.close()
            raise Broken(str(error)) from error
        if not line:
            self.close()
            raise Broken("the connection was closed")
        return json.loads(line)
