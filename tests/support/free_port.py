"""Ports of this machine for servers of a test's own."""

import os
import socket

# Both they and those 10000 above them are below 32768, where outgoing connections begin.
FIRST_PORT = 20000
PORTS = 2700
TO_THE_BUS = 10000

_taken = []  # the sockets that keep the names


def _take(port):
    """Whoever has the abstract socket of a port's name has the port: such a name is known wherever
    the port is, and goes with its process. tests/server/free_port.cpp uses the same names."""
    name = socket.socket(socket.AF_UNIX)
    try:
        name.bind("\0vu_mom test port %d" % port)
    except OSError:
        name.close()
        return False
    _taken.append(name)
    return True


def _is_free(port):
    with socket.socket() as one:
        try:
            one.bind(("127.0.0.1", port))
        except OSError:
            return False
        return True


def free_port():
    """A port that nobody listens on, nor on the one 10000 above it, which a member of a cluster
    uses too. It is this process' own until it ends: no test of another process gets it, and it is
    below those that the system gives to outgoing connections."""
    for number in range(PORTS):
        port = FIRST_PORT + (os.getpid() + number) % PORTS
        if _take(port) and _is_free(port) and _is_free(port + TO_THE_BUS):
            return port
    raise RuntimeError("no free port")
