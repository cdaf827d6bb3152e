"""Something to see on a quiet machine: datagrams to this process itself, over lo."""

import random
import socket

from vu_thread import VuThreadMaster

DATAGRAM = bytes(1000)


def start(loop: VuThreadMaster, interval: float) -> None:
    """Sends some at each interval. A machine without a working lo stays quiet."""
    try:
        end = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        end.setblocking(False)
        end.bind(("127.0.0.1", 0))
    except OSError:
        return
    loop.add_timer(interval, send, end, repeat=True)
    loop.add_reader(end, end.recv, len(DATAGRAM))


def send(end: socket.socket) -> None:
    try:
        for _ in range(random.randrange(1, 100)):
            end.sendto(DATAGRAM, end.getsockname())
    except OSError:
        pass  # a full buffer: enough was sent
