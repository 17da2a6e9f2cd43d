"""Captures of what two programs say to each other on loopback.

Live, with dumpcap, where the machine lets us. Elsewhere datagrams go through a relay that keeps each one as it was,
with its TTL and its traffic class, and writes them to the file.
"""
import os
import select
import subprocess
import threading
import time

from datagram_socket import DatagramSocket, Datagram
from programs import required_tool

START_SECONDS = 10
LIMIT_SECONDS = 60


class LiveCapture:
    """dumpcap on the loopback interface until so many packets have been seen."""

    def __init__(self, path, ports, packets):
        self.path = path
        self.ports = ports
        command = [required_tool("dumpcap"), "-q", "-i", "lo", "-w", path, "-c", str(packets),
                   "-a", f"duration:{LIMIT_SECONDS}", "-f", f"udp port {ports[4]} or udp port {ports[6]}"]
        self.process = subprocess.Popen(command, stderr=subprocess.PIPE)  # pylint: disable=consider-using-with
        self.said = b""

    def starts(self):
        """Whether it captures by now; False when it is not allowed to."""
        deadline = time.monotonic() + START_SECONDS
        stream = self.process.stderr.fileno()
        while b"File: " not in self.said:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([stream], [], [], left)[0]:
                return False
            piece = os.read(stream, 4096)
            if not piece:
                return False
            self.said += piece
        return True

    def finish(self):
        """Wait for the last packet; the limit of time ends the wait."""
        self.process.communicate(timeout=LIMIT_SECONDS + START_SECONDS)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()


class RelayedCapture:
    """One relay for each family: the probe sends to the relay's port, the relay to the reflector's."""

    def __init__(self, path, ports):
        self.path = path
        self.reflectors = ports
        self.listeners = {family: DatagramSocket(family) for family in ports}
        self.ports = {family: listener.port for family, listener in self.listeners.items()}
        self.senders = {}  # by family and the probe's port, so that each probe is a session of its own
        self.seen = []
        self.ending = threading.Event()
        self.failure = None
        self.thread = threading.Thread(target=self.relay, daemon=True)
        self.thread.start()

    def relay(self):
        try:
            while not self.ending.is_set():
                sockets = [*self.listeners.values(), *self.senders.values()]
                for ready in select.select(sockets, [], [], 0.05)[0]:
                    self.pass_on(ready)
        except Exception as error:  # pylint: disable=broad-except
            self.failure = error  # told by finish()

    def pass_on(self, ready):
        family = ready.family
        datagram = ready.receive(1)
        if ready is self.listeners[family]:
            key = (family, datagram.source)
            if key not in self.senders:
                self.senders[key] = DatagramSocket(family)
            self.senders[key].send(datagram.payload, self.reflectors[family], datagram.ttl, datagram.traffic_class)
            self.keep(family, datagram, datagram.source, self.ports[family])
        else:
            probe = next(port for (_, port), sender in self.senders.items() if sender is ready)
            self.listeners[family].send(datagram.payload, probe, datagram.ttl, datagram.traffic_class)
            self.keep(family, datagram, self.ports[family], probe)

    def keep(self, family, datagram, source, destination):
        kept = Datagram(datagram.payload, source, destination, datagram.ttl, datagram.traffic_class)
        self.seen.append((time.time(), family, kept))

    def finish(self):
        self.ending.set()
        self.thread.join(timeout=START_SECONDS)
        if self.failure is not None:
            raise self.failure
        # Slow to import, and only here is it needed.
        from scapy.all import IP, UDP, Ether, IPv6, Raw, wrpcap  # pylint: disable=import-outside-toplevel
        packets = []
        for instant, family, datagram in self.seen:
            if family == 4:
                network = IP(src="127.0.0.1", dst="127.0.0.1", ttl=datagram.ttl, tos=datagram.traffic_class)
            else:
                network = IPv6(src="::1", dst="::1", hlim=datagram.ttl, tc=datagram.traffic_class)
            link = Ether(src="00:00:00:00:00:00", dst="00:00:00:00:00:00")
            packet = link / network / UDP(sport=datagram.source, dport=datagram.destination) / Raw(datagram.payload)
            packet.time = instant
            packets.append(packet)
        wrpcap(self.path, packets)

    def close(self):
        self.ending.set()
        self.thread.join(timeout=START_SECONDS)
        for relay in (*self.listeners.values(), *self.senders.values()):
            relay.close()


def begin(path, ports, packets):
    """A capture that has begun. OLV_CAPTURE=relay asks for the relay where live captures are allowed, too."""
    if os.environ.get("OLV_CAPTURE") != "relay":
        live = LiveCapture(path, ports, packets)
        if live.starts():
            return live
        live.close()
        print(f"no live capture here, relaying instead: {live.said.decode()}")
    return RelayedCapture(path, ports)
