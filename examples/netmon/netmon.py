#!/usr/bin/env python3
"""Watches this machine's network interfaces for a few seconds.

Two applications: a collector, which stores what the kernel counts, and a monitor, which is
told by the store what has changed. Neither calls the other, so with a store on a server each
can also be a process of its own, on any machine.
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
    parser.add_argument(
        "--store", default="embedded:", help="the store (default: embedded:, in this process)"
    )
    parser.add_argument(
        "--only", choices=["collector", "monitor"], help="run one of the two applications"
    )
    parser.add_argument(
        "--host", default=platform.node() or "localhost", help="name of the machine in the store"
    )
    return parser.parse_args(argv)


def main(argv: Optional[List[str]] = None) -> int:
    options = arguments(argv)
    path = options.proc or PROC_NET_DEV
    try:
        if options.only != "monitor":
            counters.read(path)
        glb = VuGlobal(store=options.store)
    except OSError as error:
        print(f"netmon: cannot read the counters: {error}", file=sys.stderr)
        return 1
    except ValueError as error:
        print(f"netmon: {error}", file=sys.stderr)
        return 1
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # `netmon.py | head` ends quietly
    screen = Screen(sys.stdout)
    screen.log(f"network interfaces of {options.host}, every {options.interval:g} s")

    with glb:
        loop = glb.thread_master
        monitor = collector = None
        if options.only != "collector":  # first, so that it sees every change
            monitor = Monitor(glb, options.host, screen)
        if options.only != "monitor":
            collector = Collector(glb, options.host, path, options.interval)
            if not options.proc:
                traffic.start(loop, options.interval / 3)
        loop.add_timer(options.seconds, loop.stop)
        # Ctrl-C: the end comes early, but in the same way. An exception, as Python would
        # raise by itself, could come in the middle of a reply method and get lost there.
        signal.signal(signal.SIGINT, lambda *_: loop.stop())
        loop.run()
        if collector:
            collector.stop()
        if monitor:
            monitor.finish(loop.stop)
            loop.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
