"""What the soak does to a `vesko receive`: one function for each kind of operation, good and hostile ones."""

import collections
import contextlib
import json
import pathlib
import random
import socket
import struct
import threading
import time
import zlib

from endurance import (FOLDER_MARK, PORT, TEXT_NAME, TIME_LIMIT, close_with_reset, connect, element, make_payload,
                       number_bytes, remove, wait_for_end)

HOST_ADDRESS = "10.85.0.1"
ADDRESSES = [f"10.85.0.{number}" for number in range(2, 252)]  # of those that speak to it
AVATAR_PATH = "/virno/avatar"
MOMENT = 0.02  # seconds that a silent connection lasts
PICTURE_PATIENCE = 0.5


class Deliveries:
    """What has been sent and must arrive, and what the host told of. Takes its events on one thread."""

    def __init__(self):
        self.lock = threading.Lock()
        self.last_number = 0
        self.awaited = {}
        self.events = collections.Counter()
        self.wrong = []

    def offer(self, kind, size):
        with self.lock:
            self.last_number += 1
            payload = make_payload(self.last_number, kind, size)
            payload.is_told = threading.Event()
            self.awaited[payload.number] = payload
        return payload

    def take(self, event):
        with self.lock:
            self.events[event["event"]] += 1
            if event["event"] == "textReceived":
                self.take_text(event["text"])
            elif event["event"] == "itemsSaved" and event["path"]:
                self.take_items(pathlib.Path(event["path"]))

    def take_text(self, text):
        head, _, rest = text.partition("\n")
        number = int(head.removeprefix("payload ")) if rest else None
        payload = self.awaited.pop(number, None)
        if payload is None or payload.text() != text:
            self.wrong.append(f"nobody sent the text {text!r}")
        else:
            payload.is_told.set()

    def take_items(self, path):
        payload = next((self.awaited[number] for number in self.numbers_in(path) if number in self.awaited), None)
        if payload is None or not payload.is_at(path):
            self.wrong.append(f"{path} is not what somebody sent")
        else:
            del self.awaited[payload.number]
            payload.is_told.set()
        remove(path)

    @staticmethod
    def numbers_in(path):
        """The number of the payload that a path may be; the several ones have it in the names inside."""
        name = sorted(path.iterdir())[0].name if path.name.startswith("Received") else path.stem
        yield from (int(part) for part in name.split("-") if part.isdigit())

    def note(self, text):
        with self.lock:
            self.wrong.append(text)


class Client:
    """One of several that act at the same time."""

    def __init__(self, deliveries, pictures, control_path, seed):
        self.deliveries = deliveries
        self.pictures = pictures
        self.control_path = control_path
        self.random = random.Random(seed)

    def address(self):
        return self.random.choice(ADDRESSES)

    def connect(self, port=PORT):
        return connect(port, HOST_ADDRESS, self.address())

    def send_datagram(self, contents, address=None):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as voice:
            voice.bind((address or self.address(), 0))
            voice.sendto(contents, (HOST_ADDRESS, PORT))

    def bytes(self, largest):
        return self.random.randbytes(self.random.randint(1, largest))


def deliver(client, kind, size, rest=b""):
    """Sends a payload and waits until the host has told of it: what it tells is to be read as fast as it comes, or it
    would pile up in the host."""
    payload = client.deliveries.offer(kind, size)
    with client.connect() as connection:
        connection.sendall(payload.stream + rest)
        with contextlib.suppress(OSError):  # it has everything, and may be gone
            connection.shutdown(socket.SHUT_WR)
        if not wait_for_end(connection) and not rest:
            client.deliveries.note(f"a whole {kind} ended in a reset")
    if not payload.is_told.wait(TIME_LIMIT):
        client.deliveries.note(f"nothing is told of a {kind}")


def send_hostile(client, contents):
    """Something that the host has to break off by itself."""
    with client.connect() as connection:
        with contextlib.suppress(ConnectionResetError, BrokenPipeError):
            connection.sendall(contents)
        wait_for_end(connection)


def send_file(client):
    deliver(client, "file", client.random.choice((60, 1000, 20_000, 20_000, 200_000)))


def send_folder(client):
    deliver(client, "folder", 20_000)


def send_several(client):
    deliver(client, "several", 5000)


def send_text(client):
    deliver(client, "text", client.random.choice((60, 500, 20_000)))


def send_cut(client):
    kind = client.random.choice(("file", "folder", "several", "text"))
    contents = make_payload(0, kind, 20_000).stream
    connection = client.connect()
    connection.sendall(contents[:client.random.randrange(len(contents))])
    client.random.choice((close_with_reset, socket.socket.close))(connection)


def send_bad_name(client):
    name = client.random.choice((b"..", b"../x", b"a/../../x", b"/etc/x", b"", b".", b"a" * 4097, b"d/" * 300 + b"x",
                                 b"\xff\xfe", b"a/\xc3", b"x" * 300))
    elements = [element("a", b"good"), element("b", None)][:client.random.randrange(3)] + [
        name + b"\0" + number_bytes(client.random.choice((3, FOLDER_MARK))) + b"bad", b"z" * 20]
    send_hostile(client, number_bytes(9) + number_bytes(7) + b"".join(elements) + b"\0" * 9 * 9)


def send_lie(client):
    contents = client.random.choice((
        number_bytes(1) + number_bytes(1) + b"large\0" + number_bytes(1 << 60),
        number_bytes(1) + number_bytes(1) + TEXT_NAME.encode() + b"\0" + number_bytes(1 << 40),
        number_bytes(FOLDER_MARK) + number_bytes(FOLDER_MARK) + b"/\0",
        None))
    if contents:
        send_hostile(client, contents)
    else:
        deliver(client, "file", 1000, b"what nobody announced")


def stay_silent(client):
    with client.connect(client.random.choice((PORT, PORT + 1))) as connection:
        if client.random.random() < 0.5:
            connection.sendall(client.random.choice((b"\1", b"G", b"\1" + bytes(15), b"GET / HTTP/1.1\r\n")))
        time.sleep(client.random.random() * MOMENT)


def hello(client, kinds=(1, 2, 4, 5)):
    kind = client.random.choice(kinds)
    port = client.random.choice((PORT, PORT, PORT, client.random.randrange(1 << 16), 65535))
    length = client.random.choice((20, 20, 20, 20, 5000))
    signature = f"Somebody at {client.random.random()}".encode() + b"-" * length
    return bytes([kind]) + (struct.pack("<H", port) if kind > 3 else b"") + signature


def say_hello(client):
    client.send_datagram(hello(client))


def say_goodbye(client):
    client.send_datagram(b"\3Bye Bye")


def send_garbage(client):
    client.send_datagram(client.random.choice((
        b"", b"\1\xff\xfe", b"\4", b"\5\1", b"\0", b"\6" + client.bytes(100), client.bytes(1400),
        b"\1\xff" + bytes(50_000))))


def show_picture(client):
    """As a machine that the host does not know, whose picture it fetches therefore. Waits for that, or fetches would
    pile up; not for long, since datagrams may be lost."""
    address = client.address()
    with client.pictures.expected(address) as is_fetched:
        client.send_datagram(b"\3", address)
        client.send_datagram(hello(client, (1, 2)), address)
        is_fetched.wait(PICTURE_PATIENCE)


def read_answer(connection):
    """An answer's status line and what follows its fields, by their length."""
    received = b""
    while b"\r\n\r\n" not in received:
        received += take(connection)
    head, _, body = received.partition(b"\r\n\r\n")
    length = int(head.lower().partition(b"content-length: ")[2].partition(b"\r\n")[0] or 0)
    while len(body) < length:
        body += take(connection)
    return head.partition(b"\r\n")[0], body


def take(connection):
    received = connection.recv(1 << 16)
    if not received:
        raise ConnectionError("the answer ends early")
    return received


def fetch_picture(client):
    with client.connect(PORT + 1) as connection:
        for _ in range(client.random.choice((1, 1, 3))):
            connection.sendall(f"GET {AVATAR_PATH} HTTP/1.1\r\nHost: x\r\n\r\n".encode())
            status, body = read_answer(connection)
            if status != b"HTTP/1.1 200 OK" or not body.startswith(b"\x89PNG"):
                client.deliveries.note(f"the host's picture: {status}, {body[:20]}")


def send_bad_request(client):
    path = AVATAR_PATH.encode()
    contents = client.random.choice((
        client.bytes(2000), b"GET / HTTP/1.1\r\n\r\n", b"GET /" + b"x" * 9000, b"\r\n" * 100,
        b"GET " + path + b"\r\n\r\n", b"GET / HTTP/1.1\r\n" + b"A: b\r\n" * 2000 + b"\r\n",
        (b"GET " + path + b" HTTP/1.1\r\n\r\n") * 20,
        b"POST " + path + b" HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n",
        b"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n" + bytes(2000),
        b"HEAD " + path + b" HTTP/1.0\r\n\r\n", b"GET /%ff%00%2e HTTP/1.1\r\nHost:\r\n\r\n"))
    connection = client.connect(PORT + 1)
    with contextlib.suppress(ConnectionResetError, BrokenPipeError):
        connection.sendall(contents)
        if client.random.random() < 0.3:
            return close_with_reset(connection)
    with contextlib.suppress(OSError):  # it may have been closed by now
        connection.shutdown(socket.SHUT_WR)
    wait_for_end(connection)
    return connection.close()


def ask(client):
    """Says something on the control channel."""
    requests = [{"request": name, "version": 1} for name in ("peers", "watch", "announce")]
    requests.append({"request": "avatar", "key": client.address(), "version": 1})
    line = client.random.choice([json.dumps(request).encode() + b"\n" for request in requests] + [
        b"{}\n", b"[" * 3000 + b"\n", b"x" * 5000, b'{"request":', client.bytes(300) + b"\n", b""])
    with socket.socket(socket.AF_UNIX) as connection:
        connection.settimeout(TIME_LIMIT)
        connection.connect(str(client.control_path))
        with contextlib.suppress(ConnectionResetError, BrokenPipeError):
            connection.sendall(line)
            if line.endswith(b"\n"):
                answer = connection.recv(1 << 16)
                if not answer.startswith(b'{"event"'):
                    client.deliveries.note(f"the control channel answered {answer[:80]} to {line[:80]}")


OPERATIONS = {  # and how often each is chosen
    "file": (send_file, 20), "folder": (send_folder, 8), "several": (send_several, 4), "text": (send_text, 12),
    "cut": (send_cut, 14), "bad-name": (send_bad_name, 8), "lie": (send_lie, 6), "silent": (stay_silent, 4),
    "hello": (say_hello, 10), "goodbye": (say_goodbye, 4), "garbage": (send_garbage, 4), "picture": (show_picture, 6),
    "avatar": (fetch_picture, 6), "bad-request": (send_bad_request, 6), "control": (ask, 8),
}


def png(side, generator):
    def chunk(kind, contents):
        return struct.pack(">I", len(contents)) + kind + contents + struct.pack(">I", zlib.crc32(kind + contents))
    rows = b"".join(b"\0" + generator.randbytes(3 * side) for _ in range(side))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class Pictures(threading.Thread):
    """Serves the pictures of all addresses, good and bad ones in turn."""

    def __init__(self, seed):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("", PORT + 1), backlog=512)
        generator = random.Random(seed)
        good = [png(side, generator) for side in (8, 24, 48)]
        # Wider than the host takes; as one piece, it is more than what it says.
        wide = good[0][:16] + struct.pack(">I", 5000) + good[0][20:]
        self.answers = [self.answer(body) for body in (*good, *good, wide, good[1][:60], b"GIF89a", b"")] + [
            b"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n",
            b"HTTP/1.1 200 OK\r\nContent-Length: 5000000\r\n\r\n",
            b"HTTP/1.1 302 Found\r\nLocation: http://10.85.0.2:4645/\r\n\r\n", generator.randbytes(3000), b"",
            b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nfffffff\r\n" + bytes(9000),
            b"HTTP/1.1 200 OK\r\n" + b"A: b\r\n" * 3000]
        self.served = 0
        self.held = collections.deque()  # those that get no answer for a while
        self.lock = threading.Lock()
        self.awaited = collections.defaultdict(list)  # by address: who waits for its picture to be fetched

    @contextlib.contextmanager
    def expected(self, address):
        is_fetched = threading.Event()
        with self.lock:
            self.awaited[address].append(is_fetched)
        try:
            yield is_fetched
        finally:
            with self.lock:
                self.awaited[address].remove(is_fetched)

    @staticmethod
    def answer(body):
        return f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\n\r\n".encode() + body

    def run(self):
        while True:
            connection, _ = self.listener.accept()
            self.served += 1
            with self.lock:
                for is_fetched in self.awaited[connection.getsockname()[0]]:
                    is_fetched.set()
            if self.served % 100 == 0:
                self.hold(connection)
                continue
            with contextlib.suppress(OSError), connection:
                connection.settimeout(TIME_LIMIT)
                connection.recv(4096)
                connection.sendall(self.answers[self.served % len(self.answers)])

    def hold(self, connection):
        with self.lock:
            self.held.append(connection)
        self.let_go(2)

    def let_go(self, count_held=0):
        """Closes connections that wait for an answer, but for the last ones."""
        with self.lock:
            while len(self.held) > count_held:
                self.held.popleft().close()
