"""UDP sockets on loopback that send and tell the TTL (hop limit) and the traffic class of each datagram."""
import dataclasses
import socket
import struct

LOOPBACK = {4: "127.0.0.1", 6: "::1"}
LONGEST = 65535
IP_RECVTTL = 12  # Linux; Python has no name for it


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
        kind = socket.AF_INET if family == 4 else socket.AF_INET6
        self.socket = socket.socket(kind, socket.SOCK_DGRAM)
        if family == 4:
            self.level, self.set_ttl, self.set_class = socket.IPPROTO_IP, socket.IP_TTL, socket.IP_TOS
            wanted = (IP_RECVTTL, socket.IP_RECVTOS)
            self.told_ttl, self.told_class = socket.IP_TTL, socket.IP_TOS
        else:
            self.level = socket.IPPROTO_IPV6
            self.set_ttl, self.set_class = socket.IPV6_UNICAST_HOPS, socket.IPV6_TCLASS
            wanted = (socket.IPV6_RECVHOPLIMIT, socket.IPV6_RECVTCLASS)
            self.told_ttl, self.told_class = socket.IPV6_HOPLIMIT, socket.IPV6_TCLASS
        for option in wanted:
            self.socket.setsockopt(self.level, option, 1)
        self.socket.bind((LOOPBACK[family], port))
        self.port = self.socket.getsockname()[1]

    def close(self):
        self.socket.close()

    def fileno(self):
        return self.socket.fileno()

    def send(self, payload, port, ttl, traffic_class):
        self.socket.setsockopt(self.level, self.set_ttl, ttl)
        self.socket.setsockopt(self.level, self.set_class, traffic_class)
        self.socket.sendto(payload, (LOOPBACK[self.family], port))

    def receive(self, timeout):
        """The next datagram; socket.timeout when there is none in time."""
        self.socket.settimeout(timeout)
        payload, ancillary, _, source = self.socket.recvmsg(LONGEST, socket.CMSG_SPACE(4) * 4)
        told = {kind: int.from_bytes(data, "little") if len(data) == 1 else struct.unpack("=i", data)[0]
                for level, kind, data in ancillary if level == self.level}
        return Datagram(payload, source[1], self.port, told[self.told_ttl], told[self.told_class])
