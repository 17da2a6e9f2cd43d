"""IP packets as Scapy builds them."""
from scapy.layers.inet import IP, UDP
from scapy.layers.inet6 import IPv6
from scapy.layers.l2 import Ether
from scapy.packet import Raw
from scapy.utils import wrpcap

from datagram_socket import LOOPBACK


def ip_packet(family, datagram):
    """From the loopback address to the loopback address."""
    both = {"src": LOOPBACK[family], "dst": LOOPBACK[family]}
    if family == 4:
        network = IP(**both, ttl=datagram.ttl, tos=datagram.traffic_class)
    else:
        network = IPv6(**both, hlim=datagram.ttl, tc=datagram.traffic_class)
    return network / UDP(sport=datagram.source, dport=datagram.destination) / Raw(datagram.payload)


def write_capture(path, seen):
    """A file of what was seen when: instant, family and datagram of each packet."""
    frames = []
    for instant, family, datagram in seen:
        frames.append(Ether(src="00:00:00:00:00:00", dst="00:00:00:00:00:00") / ip_packet(family, datagram))
        frames[-1].time = instant
    wrpcap(path, frames)
