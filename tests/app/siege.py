#!/usr/bin/env python3
"""The helper under a siege of its user's own processes: what it holds meanwhile, what it keeps, whom it answers.

usage: siege.py LOGINHELPER SERVICE [sanitized]      (sanitizers keep books of their own: then no memory is promised)

Every process takes its share of the connections, asks without pause and never reads an answer; others send
garbage beside descriptors whose close lasts 30 s. An honest peer asks all the while. One line for each figure;
fails when a promise is broken.
"""
import array
import os
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

SHARE = 32
PATIENCE = 10  # s for an answer, on a machine with much to do
PROCESSES = 8
HELD_LIMIT = 300 << 20
KEPT_LIMIT = 2 << 20
failures = []


def frame(*keys):
    """A message of true flags that wants a reply."""
    body = b""
    for key in keys:
        raw = key.encode()
        body += struct.pack("<BBHI", 1, 0, len(raw), 8) + raw.ljust((len(raw) + 8) // 8 * 8, b"\0") + struct.pack("<Q", 1)
    return struct.pack("<4sBBHQIHHQ", b"PXPC", 1, 2, 0, 7, len(body), 0, len(keys), 0) + body


TEST = frame("XPC_TEST_CONNECTION")


def connect(path):
    peer = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    peer.connect(path)
    return peer


def memory(pid):
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as rollup:
        return int(next(line for line in rollup if line.startswith("Rss:")).split()[1]) << 10


def tell(name, text, held):
    print(f"{name}: {text}{'' if held else '   BROKEN'}", flush=True)
    if not held:
        failures.append(name)


class Honest:
    def __init__(self, path):
        self.peer = connect(path)
        self.peer.settimeout(60)
        self.times = []

    def ask(self, count=1):
        for _ in range(count):
            start = time.monotonic()
            self.peer.sendall(TEST)
            if not self.peer.recv(4096):
                raise ConnectionError("an honest peer was closed")
            self.times.append(time.monotonic() - start)
            time.sleep(0.002)

    def report(self, name):
        times = sorted(self.times)
        self.times = []
        tell(name, f"99th percentile {times[len(times) * 99 // 100] * 1e3:.1f} ms, longest {times[-1] * 1e3:.1f} ms of {len(times)}",
             times[-1] <= PATIENCE)


def never_read(path, ready):
    """One besieging process; a byte goes out when every connection is full, or was closed."""
    peers = {}
    flood = TEST * 200
    for _ in range(SHARE):
        peer = connect(path)
        peer.setblocking(False)
        peers[peer.fileno()] = [peer, 0]
    poll = select.poll()
    for descriptor in peers:
        poll.register(descriptor, select.POLLOUT)
    sent = 0
    while events := poll.poll(1000):
        for descriptor, _ in events:
            entry = peers[descriptor]
            try:
                count = entry[0].send(flood[entry[1]:])
                entry[1] = (entry[1] + count) % len(flood)
                sent += count
            except BlockingIOError:
                pass
            except OSError:
                poll.unregister(descriptor)
    os.write(ready, struct.pack("<Q", sent))
    signal.pause()


def lingering():
    """A socket with more to send than its reader takes, whose close waits for 30 s."""
    listener = socket.create_server(("127.0.0.1", 0))
    sender = socket.create_connection(listener.getsockname())
    reader, _ = listener.accept()
    sender.setblocking(False)
    try:
        while True:
            sender.send(bytes(1 << 16))
    except BlockingIOError:
        pass
    sender.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 30))
    listener.close()
    return sender, reader


def send_with(peer, data, descriptors):
    peer.sendmsg([data], [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", descriptors))])


def siege(path, pid, honest, sanitized):
    before = memory(pid)
    ready, told = os.pipe()
    besiegers = []
    for _ in range(PROCESSES):
        child = os.fork()
        if child == 0:
            never_read(path, told)
        besiegers.append(child)
    sent = 0
    waiting = PROCESSES
    while waiting:
        honest.ask(10)
        if select.select([ready], [], [], 0)[0]:
            sent += struct.unpack("<Q", os.read(ready, 8))[0]
            waiting -= 1
    held = memory(pid)
    tell("never read", f"{PROCESSES * SHARE - 1} connections sent {sent >> 20} MiB", True)
    tell("held", f"{held / 2**20:.1f} MiB, {before / 2**20:.1f} MiB before", sanitized or held < HELD_LIMIT)
    honest.ask(100)
    honest.report("asked meanwhile")
    for child in besiegers:
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
    gone = time.monotonic()
    while (kept := memory(pid) - before) > KEPT_LIMIT and not sanitized and time.monotonic() - gone < 60:
        time.sleep(0.2)
    tell("kept", f"{kept >> 10} KiB, {time.monotonic() - gone:.1f} s after they went",
         sanitized or kept <= KEPT_LIMIT)


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def garbage(path, pid, honest, before):
    """Refused at once, refused with more to read, and honest but for what it brings."""
    readers = []
    for parts in (((b"garbage " * 8, 20),), ((b"garbage " * 8, 1), (b"unread", 20)), ((TEST, 4),), ((TEST, 250),)):
        with connect(path) as peer:
            for data, count in parts:
                pairs = [lingering() for _ in range(count)]
                readers += [reader for _, reader in pairs]
                try:
                    send_with(peer, data, [sender.fileno() for sender, _ in pairs])
                except OSError:  # refused already
                    for sender, _ in pairs:
                        sender.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, bytes(8))
                for sender, _ in pairs:
                    sender.close()
        honest.ask(20)
    honest.report("asked beside garbage")
    end = time.monotonic() + 20
    while (left := descriptors(pid)) > before and time.monotonic() < end:
        time.sleep(0.1)
    tell("descriptors", f"{left}, {before} before", left == before)


def storm(path, processes, connections):
    """Connections that close at once, half of them with a question on the way; then somebody else asks."""
    children = []
    for _ in range(processes):
        child = os.fork()
        if child == 0:
            for number in range(connections // processes):
                with connect(path) as peer:
                    if number % 2:
                        try:
                            peer.sendall(TEST)
                        except OSError:
                            pass  # one of its share is still open
            os._exit(0)
        children.append(child)
    for child in children:
        os.waitpid(child, 0)
    start = time.monotonic()
    newcomer = Honest(path)
    newcomer.ask()
    tell("after the storm", f"answered after {time.monotonic() - start:.2f} s", True)


def greedy(path):
    """More connections than one process may have."""
    peers = [connect(path) for _ in range(SHARE + 8)]
    for peer in peers:
        try:
            peer.sendall(TEST)
        except OSError:
            pass
    answered = 0
    for peer in peers:
        try:
            answered += len(peer.recv(1))
        except ConnectionResetError:
            pass
    tell("one process", f"{answered} of {len(peers)} connections", answered == SHARE - 1)
    for peer in peers:
        peer.close()


def main():
    helper = os.path.abspath(sys.argv[1])
    sanitized = len(sys.argv) > 3
    with tempfile.TemporaryDirectory() as place:
        environment = dict(os.environ, HOME=place, XDG_RUNTIME_DIR=place, XDG_CONFIG_HOME=place)
        with subprocess.Popen([helper, "--serve"], env=environment, stderr=subprocess.PIPE, text=True) as service:
            try:
                print(service.stderr.readline(), end="")
                path = f"{place}/port-xpc/{sys.argv[2]}.sock"
                honest = Honest(path)
                honest.ask(100)
                before = descriptors(service.pid)
                greedy(path)
                garbage(path, service.pid, honest, before)
                storm(path, 4, 10_000)
                siege(path, service.pid, honest, sanitized)
            finally:
                service.kill()
            said = service.stderr.read()
    tell("said", said.strip(), said.count("has 32 connections") == 1)
    sys.exit(1 if failures else 0)


main()
