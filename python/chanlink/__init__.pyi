from types import TracebackType
from typing import Callable, Dict, Iterable, Iterator, NamedTuple, Optional, Type, Union

__version__: str

class Error(Exception):
    """Base of every error this module raises."""

class ConnectionFailed(Error, ConnectionError):
    """No connection to the device: unreachable, lost, or the client is closed."""

class LoginRefused(Error):
    result: int
    """0: wrong user name or password; 2: the device has too many connections."""

class Timeout(Error, TimeoutError):
    """No answer came within the timeout."""

class Refused(Error):
    """A get or set refused by the device (or by the library)."""
    channel: int
    reason: int
    name: Optional[str]
    """The library's name of the reason code; None for a device's own code."""

class Change(NamedTuple):
    """One change of a watched channel."""
    channel: int
    previous: Optional[bytes]
    value: bytes

Data = Union[bytes, bytearray, memoryview]

def reason_name(code: int) -> Optional[str]:
    """The library's name of a reason code (17 -> 'UnknownChannel'); None for a device's own."""

class Watch(Iterator[Change]):
    """The iterator Client.watch() returns."""
    def __iter__(self) -> Watch: ...
    def __next__(self) -> Change: ...
    def close(self) -> None:
        """Ends the watch and its subscriptions."""
    def __enter__(self) -> Watch: ...
    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None: ...

class Client:
    """A connection to one device, kept alive across device restarts.

    Calls block until answered or timed out, without holding the GIL.
    """
    def __init__(self, host: str, port: int, user: str, password: str, *,
                 timeout: float = 5.0, reconnect: bool = True,
                 max_frame: int = 16777216, tls: bool = False, ca: Optional[str] = None,
                 cert: Optional[str] = None, key: Optional[str] = None,
                 insecure: bool = False) -> None:
        """Connects and logs in within timeout seconds (also every call's default).

        tls=True speaks TLS and verifies the device against the system's
        certificates or ca (insecure=True skips that); cert and key are the
        client's own for mutual TLS. Raises LoginRefused, Timeout or
        ConnectionFailed (with the TLS reason when the handshake failed).
        """
    def get(self, channel: int, timeout: Optional[float] = None) -> bytes:
        """The channel's value. Raises Refused, Timeout or ConnectionFailed."""
    def get_many(self, channels: Iterable[int],
                 timeout: Optional[float] = None) -> Dict[int, Union[bytes, Refused]]:
        """Values of several channels asked for together; refused ones as Refused."""
    def set(self, channel: int, data: Data, timeout: Optional[float] = None) -> None:
        """Writes the channel. Raises Refused, Timeout or ConnectionFailed."""
    def subscribe(self, channel: int, callback: Callable[[int, bytes], object]) -> None:
        """Calls callback(channel, value) inside poll() for every value of the channel."""
    def unsubscribe(self, channel: int,
                    callback: Optional[Callable[[int, bytes], object]] = None) -> None:
        """Removes the callback, or every callback of the channel when None."""
    def poll(self, timeout: float = 0.0) -> int:
        """Waits up to timeout seconds for subscribed values, runs their callbacks.

        Returns how many values were delivered; a callback's exception propagates.
        """
    def watch(self, channels: Iterable[int], count: Optional[int] = None,
              seconds: Optional[float] = None) -> Watch:
        """Changes of the channels, starting with their current values."""
    def close(self) -> None:
        """Closes the connection; further calls raise ConnectionFailed."""
    @property
    def state(self) -> str:
        """'Ready', 'Connecting', 'LoggingIn', 'WaitingToReconnect' or 'Stopped'."""
    @property
    def dropped_values(self) -> int:
        """Values of subscribed channels dropped because more than 100000 waited for poll();
        the latest value of each channel is always kept."""
    def __enter__(self) -> Client: ...
    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None: ...

class Channel:
    """One channel of a Device."""
    def __init__(self, id: int, size: int = 4, read_only: bool = False,
                 initial: Optional[Data] = None, name: str = "") -> None: ...
    @property
    def id(self) -> int: ...
    @property
    def size(self) -> int: ...
    @property
    def read_only(self) -> bool: ...
    @property
    def initial(self) -> bytes: ...
    @property
    def name(self) -> str: ...

class Device:
    """A simulated device served from a background thread on 127.0.0.1 and ::1."""
    def __init__(self, channels: Iterable[Channel], port: int = 0, user: str = "admin",
                 password: str = "secret", max_clients: int = 4) -> None:
        """Starts serving; raises OSError when it cannot listen."""
    @property
    def port(self) -> int: ...
    def set(self, channel: int, data: Data) -> None:
        """Writes the channel as the device itself; subscribers are told."""
    def get(self, channel: int) -> bytes:
        """The channel's current value."""
    def close(self) -> None:
        """Closes every connection and stops serving."""
    def __enter__(self) -> Device: ...
    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None: ...
