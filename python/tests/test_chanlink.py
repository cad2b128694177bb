import socket
import threading
import time

import pytest

import chanlink
from conftest import CHANNELS


def poll_until(client, condition, seconds=10.0):
    deadline = time.monotonic() + seconds
    while not condition() and time.monotonic() < deadline:
        client.poll(0.1)
    return condition()


def test_example(device, client):
    assert client.get(2) == b"\x05\0\0\0"
    values = client.get_many([1, 2, 99])
    assert values[1] == b"\0\0\0\0" and values[2] == b"\x05\0\0\0"
    assert isinstance(values[99], chanlink.Refused) and values[99].name == "UnknownChannel"
    client.set(1, b"\x0a\0\0\0")
    changes = []
    for change in client.watch([1], count=2, seconds=5):
        changes.append(change)
        device.set(1, b"\x0b\0\0\0")
    assert changes == [(1, None, b"\x0a\0\0\0"), (1, b"\x0a\0\0\0", b"\x0b\0\0\0")]
    seen = []
    client.subscribe(1, lambda channel, value: seen.append(value))
    device.set(1, b"\x01\0\0\0")
    assert poll_until(client, lambda: b"\x01\0\0\0" in seen)
    # What a callback raises comes out of poll().
    client.subscribe(1, lambda channel, value: {}[channel])
    device.set(1, b"\x02\0\0\0")
    with pytest.raises(KeyError):
        poll_until(client, lambda: False)


@pytest.mark.parametrize("call, name", [
    (lambda c: c.get(99), "UnknownChannel"),
    (lambda c: c.set(99, b"\0\0\0\0"), "UnknownChannel"),
    (lambda c: c.set(2, b"\0\0\0\0"), "ReadOnlyChannel"),
    (lambda c: c.set(1, b"\0"), "WrongDataSize"),
])
def test_refusals_by_name(client, call, name):
    with pytest.raises(chanlink.Refused) as refused:
        call(client)
    assert refused.value.name == name == chanlink.reason_name(refused.value.reason)


@pytest.mark.parametrize("kwargs, max_clients, error, result", [
    (dict(password="wrong"), 4, chanlink.LoginRefused, 0),
    (dict(), 0, chanlink.LoginRefused, 2),
    # A device that does not speak TLS never completes the handshake.
    (dict(tls=True, insecure=True, reconnect=False, timeout=2.0), 4, chanlink.ConnectionFailed, None),
])
def test_connection_refused(kwargs, max_clients, error, result):
    with chanlink.Device(CHANNELS, max_clients=max_clients) as dev:
        with pytest.raises(error) as refused:
            chanlink.Client("127.0.0.1", dev.port, "admin", kwargs.pop("password", "secret"), **kwargs)
    assert getattr(refused.value, "result", None) == result


def test_timeout_against_silent_listener():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        start = time.monotonic()
        with pytest.raises(chanlink.Timeout):
            chanlink.Client("127.0.0.1", listener.getsockname()[1], "admin", "secret",
                            timeout=0.5)
        assert time.monotonic() - start < 0.5 + 0.2


def test_device_restart_under_subscribed_client(device, client):
    seen = []
    client.subscribe(1, lambda channel, value: seen.append(value))
    device.close()
    with chanlink.Device(CHANNELS, port=device.port) as restarted:
        restarted.set(1, b"\x07\0\0\0")
        assert poll_until(client, lambda: b"\x07\0\0\0" in seen)
        assert client.get(1) == b"\x07\0\0\0"


def test_gil_released_during_blocking_get(device):
    # A relay that passes the login and its answer, then swallows every
    # request: the get below really waits on the network.
    listener = socket.create_server(("127.0.0.1", 0))
    listener.settimeout(5.0)

    def relay():
        conn, _ = listener.accept()
        with conn, socket.create_connection(("127.0.0.1", device.port), timeout=5.0) as up:
            up.sendall(conn.recv(4096))
            conn.sendall(up.recv(4096))
            while conn.recv(4096):
                pass
    threading.Thread(target=relay, daemon=True).start()
    stamps, stop = [], threading.Event()

    def record():
        while not stop.wait(0.01):
            stamps.append(time.monotonic())
    with listener, chanlink.Client("127.0.0.1", listener.getsockname()[1], "admin", "secret") as c:
        recorder = threading.Thread(target=record)
        recorder.start()
        start = time.monotonic()
        with pytest.raises(chanlink.Timeout):
            c.get(1, timeout=0.6)
        end = time.monotonic()
        stop.set()
        recorder.join()
    # Had the waiting call held the GIL, no stamp would fall inside it.
    assert sum(start + 0.1 < stamp < end - 0.1 for stamp in stamps) >= 10


@pytest.mark.parametrize("call, error", [
    (lambda c, d: c.get(-1), ValueError),
    (lambda c, d: c.get(2**32), ValueError),
    (lambda c, d: c.get("1"), TypeError),
    (lambda c, d: c.get_many([1, -1]), ValueError),
    (lambda c, d: c.set(1, "text"), TypeError),
    (lambda c, d: c.set(1, 10), TypeError),
    (lambda c, d: c.get(1, timeout=-1), ValueError),
    (lambda c, d: c.subscribe(1, None), TypeError),
    (lambda c, d: d.set(1, b"\0"), ValueError),
    (lambda c, d: d.set(5, b"\0\0\0\0"), ValueError),
    (lambda c, d: chanlink.Channel(1, size=0), ValueError),
    (lambda c, d: chanlink.Channel(1, initial=b"\0"), ValueError),
    (lambda c, d: chanlink.Device([1]), TypeError),
    (lambda c, d: chanlink.Client("localhost", 70000, "admin", "secret"), ValueError),
    (lambda c, d: chanlink.Client("localhost", d.port, "admin", "secret", ca="ca.pem"), ValueError),
])
def test_bad_arguments(device, client, call, error):
    with pytest.raises(error):
        call(client, device)
    assert client.get(2) == b"\x05\0\0\0"
