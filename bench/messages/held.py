"""What messages take from the system while they are held: held.py MODULE prints bytes."""

import importlib
import os
import sys

HELD = 1000000


def fill(message):
    message.device = "switch-17.example.net"
    message.port = 48
    message.octets = 123456789012
    message.load = 0.75
    message.up = True


def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def bytes_per_message(Sample):
    fill(Sample())
    messages = [None] * HELD
    before = resident()
    for i in range(HELD):
        messages[i] = Sample()
        fill(messages[i])
    return (resident() - before) / HELD


if __name__ == "__main__":
    print(bytes_per_message(importlib.import_module(sys.argv[1]).Sample))
