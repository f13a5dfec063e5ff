"""A port in use is told. A thousand clients talk to the server, fifty at a time; Ctrl-C ends it while it has some."""
import concurrent.futures, signal, socket, subprocess, sys, time

with socket.create_server(("", 0)) as taken:
    port = taken.getsockname()[1]
    refused = subprocess.run([sys.argv[1], str(port)], stderr=subprocess.PIPE)
    assert refused.returncode == 1 and f"port {port}".encode() in refused.stderr
server = subprocess.Popen([sys.argv[1], str(port)], stdout=subprocess.PIPE)
end = b"x" * 10000 + b"\n"

def talk(_):
    client = socket.create_connection(("127.0.0.1", port), 20)
    for part in b"hel", b"lo\nwor", b"ld\n" + end:
        client.sendall(part)
    assert client.makefile("rb").read(12 + len(end)) == b"hello\nworld\n" + end
    return client

try:
    while socket.socket().connect_ex(("127.0.0.1", port)):  # until it listens
        time.sleep(0.05)
    with concurrent.futures.ThreadPoolExecutor(50) as pool:
        assert all(pool.map(lambda i: talk(i).close() is None, range(1000)))
    clients = [talk(0) for _ in range(50)]
    server.send_signal(signal.SIGINT)
    start = time.monotonic()
    assert server.wait(10) == 0 and time.monotonic() - start < 3
    assert all(client.recv(1) == b"" for client in clients)
finally:
    server.kill()
