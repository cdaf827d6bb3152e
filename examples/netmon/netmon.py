#!/usr/bin/env python3
"""Watches this machine's network interfaces for a few seconds.

Two applications in one process: a collector, which stores what the kernel counts, and a
monitor, which is told by the store what has changed. Neither calls the other.
"""

import argparse
import platform
import signal
import sys
from typing import List, Optional

import counters
import traffic
from collector import Collector
from monitor import Monitor
from screen import Screen
from vu_global import VuGlobal

PROC_NET_DEV = "/proc/net/dev"


def seconds(text: str) -> float:
    value = float(text)
    if not 0.01 <= value <= 86400:
        raise ValueError
    return value


def arguments(argv: Optional[List[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="netmon", description=__doc__.partition("\n")[0])
    parser.add_argument("--seconds", type=seconds, default=4.0, help="how long (default: 4)")
    parser.add_argument(
        "--interval", type=seconds, default=0.5, help="seconds between samples (default: 0.5)"
    )
    parser.add_argument(
        "--proc", metavar="FILE", help="read the counters from FILE; sends no datagrams over lo"
    )
    return parser.parse_args(argv)


def main(argv: Optional[List[str]] = None) -> int:
    options = arguments(argv)
    path = options.proc or PROC_NET_DEV
    try:
        counters.read(path)
    except OSError as error:
        print(f"netmon: cannot read the counters: {error}", file=sys.stderr)
        return 1
    host = platform.node() or "localhost"
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # `netmon.py | head` ends quietly
    screen = Screen(sys.stdout)
    screen.log(f"network interfaces of {host}, every {options.interval:g} s")

    with VuGlobal() as glb:
        loop = glb.thread_master
        monitor = Monitor(glb, host, screen)  # first, so that it sees every change
        collector = Collector(glb, host, path, options.interval)
        if not options.proc:
            traffic.start(loop, options.interval / 3)
        loop.add_timer(options.seconds, loop.stop)
        # Ctrl-C: the end comes early, but in the same way. An exception, as Python would
        # raise by itself, could come in the middle of a reply method and get lost there.
        signal.signal(signal.SIGINT, lambda *_: loop.stop())
        loop.run()
        collector.stop()
        monitor.finish(loop.stop)
        loop.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
