"""The ports of 127.0.0.1 that the tutorial's programs have had.

The page has another one for each program. The system may give a port again that is free, so these are kept taken.
"""

import re
import socket
from pathlib import Path

# A connected socket, as UDP senders have one: its own port, and its peer's.
CONNECTED = re.compile(r" 0100007F:([0-9A-F]{4}) 0100007F:([0-9A-F]{4}) 01 ")


def senders_to(port: int) -> set[int]:
    """Ports from which programs send to this one now."""
    table = Path("/proc/net/udp").read_text(encoding="ascii")
    return {int(own, 16) for own, peer in CONNECTED.findall(table) if int(peer, 16) == port}


class KeptPorts:
    def __init__(self) -> None:
        self._taken: dict[tuple[int, int], socket.socket] = {}

    def keep(self, ports: set[int]) -> None:
        """Take them, unless a program has them still."""
        for port in ports:
            for kind in (socket.SOCK_DGRAM, socket.SOCK_STREAM):
                if (kind, port) not in self._taken:
                    self._take(kind, port)

    def _take(self, kind: int, port: int) -> None:
        taken = socket.socket(socket.AF_INET, kind)
        try:
            taken.bind(("127.0.0.1", port))
        except OSError:
            taken.close()
        else:
            self._taken[kind, port] = taken

    def close(self) -> None:
        for taken in self._taken.values():
            taken.close()
