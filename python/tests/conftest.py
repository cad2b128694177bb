import pytest

import chanlink

CHANNELS = [chanlink.Channel(1, size=4),
            chanlink.Channel(2, size=4, read_only=True, initial=b"\x05\0\0\0")]


@pytest.fixture
def device():
    with chanlink.Device(CHANNELS, user="admin", password="secret") as dev:
        yield dev


@pytest.fixture
def client(device):
    with chanlink.Client("localhost", device.port, "admin", "secret", timeout=5.0) as c:
        yield c
