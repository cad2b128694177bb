"""chanlink: a client and a simulated device for chanlink devices.

Everything is done by the compiled library; see docs/PYTHON.md.
"""

from ._chanlink import (
    Change,
    Channel,
    Client,
    ConnectionFailed,
    Device,
    Error,
    LoginRefused,
    Refused,
    Timeout,
    Watch,
    __version__,
    reason_name,
)

__all__ = [
    "Change",
    "Channel",
    "Client",
    "ConnectionFailed",
    "Device",
    "Error",
    "LoginRefused",
    "Refused",
    "Timeout",
    "Watch",
    "reason_name",
]
