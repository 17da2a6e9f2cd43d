"""Captures of what two programs say to each other on loopback.

Live, with dumpcap, where the machine lets us. Elsewhere datagrams go through a relay that keeps each one as it was,
with its TTL and its traffic class, and writes them to the file.
"""
import dataclasses
import os
import select
import socket
import subprocess
import threading
import time

from datagram_socket import DatagramSocket, raw_socket_is_allowed
from programs import PATIENCE, Program, required_tool

LIMIT_SECONDS = 60


class LiveCapture(Program):
    """dumpcap on the loopback interface until so many packets have been seen."""

    def __init__(self, path, ports, packets):
        super().__init__([required_tool("dumpcap"), "-q", "-i", "lo", "-w", path, "-c", str(packets),
                          "-a", f"duration:{LIMIT_SECONDS}", "-f", f"udp port {ports[4]} or udp port {ports[6]}"],
                         "^File: ", stderr=subprocess.PIPE)
        self.path = path
        self.ports = ports

    def finish(self):
        """Wait for the last packet; the limit of time ends the wait."""
        self.process.communicate(timeout=LIMIT_SECONDS + PATIENCE)


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
        self.seen.append((time.time(), family, dataclasses.replace(datagram, source=source, destination=destination)))

    def finish(self):
        self.ending.set()
        self.thread.join(timeout=PATIENCE)
        if self.failure is not None:
            raise self.failure
        from packets import write_capture  # slow, and needed here alone; pylint: disable=import-outside-toplevel
        write_capture(self.path, self.seen)

    def close(self):
        self.ending.set()
        self.thread.join(timeout=PATIENCE)
        for relay in (*self.listeners.values(), *self.senders.values()):
            relay.close()


def begin(path, ports, packets):
    """A capture that has begun. OLV_CAPTURE=relay asks for the relay where live captures are allowed, too."""
    if os.environ.get("OLV_CAPTURE") != "relay" and raw_socket_is_allowed(socket.AF_PACKET, 0):
        return LiveCapture(path, ports, packets)
    return RelayedCapture(path, ports)
