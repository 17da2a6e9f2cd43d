"""UDP sockets on loopback that send and tell the TTL (hop limit) and the traffic class of each datagram."""
import dataclasses
import socket
import struct

LOOPBACK = {4: "127.0.0.1", 6: "::1"}
LONGEST = 65535
IP_RECVTTL = 12  # Linux; Python has no name for it

# Domain and level of a family; the options that set TTL and traffic class, ask to be told of them, and tell them.
NAMES = {
    4: (socket.AF_INET, socket.IPPROTO_IP, (socket.IP_TTL, socket.IP_TOS), (IP_RECVTTL, socket.IP_RECVTOS),
        (socket.IP_TTL, socket.IP_TOS)),
    6: (socket.AF_INET6, socket.IPPROTO_IPV6, (socket.IPV6_UNICAST_HOPS, socket.IPV6_TCLASS),
        (socket.IPV6_RECVHOPLIMIT, socket.IPV6_RECVTCLASS), (socket.IPV6_HOPLIMIT, socket.IPV6_TCLASS)),
}


def raw_socket_is_allowed(domain, protocol):
    try:
        socket.socket(domain, socket.SOCK_RAW, protocol).close()
    except PermissionError:
        return False
    return True


@dataclasses.dataclass(frozen=True)
class Datagram:
    payload: bytes
    source: int
    destination: int
    ttl: int
    traffic_class: int


class DatagramSocket:
    """Bound to a port, which the system chooses unless it is given."""

    def __init__(self, family, port=0):
        self.family = family
        domain, self.level, self.setting, wanted, self.told = NAMES[family]
        self.socket = socket.socket(domain, socket.SOCK_DGRAM)
        for option in wanted:
            self.socket.setsockopt(self.level, option, 1)
        self.socket.bind((LOOPBACK[family], port))
        self.port = self.socket.getsockname()[1]

    def close(self):
        self.socket.close()

    def fileno(self):
        return self.socket.fileno()

    def send(self, payload, port, ttl, traffic_class):
        for option, value in zip(self.setting, (ttl, traffic_class)):
            self.socket.setsockopt(self.level, option, value)
        self.socket.sendto(payload, (LOOPBACK[self.family], port))

    def receive(self, timeout):
        """The next datagram; socket.timeout when there is none in time."""
        self.socket.settimeout(timeout)
        payload, ancillary, _, source = self.socket.recvmsg(LONGEST, socket.CMSG_SPACE(4) * 4)
        told = {kind: int.from_bytes(data, "little") if len(data) == 1 else struct.unpack("=i", data)[0]
                for level, kind, data in ancillary if level == self.level}
        return Datagram(payload, source[1], self.port, *(told[kind] for kind in self.told))
