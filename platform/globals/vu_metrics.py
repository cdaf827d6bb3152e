"""The counters of VuGlobal.stats() as Prometheus reads them.

An application that keeps a file for the node exporter's textfile collector up to date:

    glb.thread_master.add_timer(
        15, vu_metrics.write, "/var/lib/prometheus/node-exporter/app.prom", glb, repeat=True)
"""
import os
from typing import List, Mapping, Optional

from vu_global import VuGlobal

# The numbers of stats(): what they are called here, their type, and what they are.
_METRICS = {
    "commands": ("vu_mom_commands_total", "counter", "Commands accepted."),
    "refused": ("vu_mom_refused_total", "counter", "Commands refused with an exception."),
    "replies": ("vu_mom_replies_total", "counter", "Replies delivered."),
    "errors": ("vu_mom_errors_total", "counter", "Replies delivered with an error."),
    "events": ("vu_mom_events_total", "counter", "Events delivered."),
    "missed": ("vu_mom_missed_total", "counter", "Notices that events may be missing."),
    "reconnects": ("vu_mom_reconnects_total", "counter", "Connections lost and made again."),
    "waiting": ("vu_mom_waiting", "gauge", "Replies and events not delivered yet."),
    "pending": ("vu_mom_pending", "gauge", "Commands that a server has not answered."),
    "unsent_bytes": ("vu_mom_unsent_bytes", "gauge", "Bytes of commands not sent yet."),
}


def _escaped(text: str) -> str:
    return text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")


def prometheus(*globs: VuGlobal, labels: Optional[Mapping[str, str]] = None) -> str:
    """The counters of these in the text format of Prometheus, version 0.0.4.

    Each has the labels `store`, without a password, and `handle`, its place among the arguments
    from 0; and the given ones, whose names have to be names of labels.
    """
    rows = []
    for place, glb in enumerate(globs):
        pairs = dict(labels or {}, store=glb.store_text, handle=str(place))
        text = ",".join('%s="%s"' % (name, _escaped(pairs[name])) for name in sorted(pairs))
        rows.append((text, glb.stats()))
    lines = []  # type: List[str]
    for number, (name, kind, help_text) in _METRICS.items():
        lines.append("# HELP %s %s" % (name, help_text))
        lines.append("# TYPE %s %s" % (name, kind))
        lines.extend("%s{%s} %d" % (name, text, stats[number]) for text, stats in rows)
    return "".join(line + "\n" for line in lines)


def write(path: str, *globs: VuGlobal, labels: Optional[Mapping[str, str]] = None) -> None:
    """Writes the same to a file, which is complete at every moment: it is replaced by a new one.

    OSError where it cannot be written; what was there before stays. Its directory has to be
    writable. The file can be read by everybody, as far as the umask allows it.
    """
    new = "%s.%d.new" % (path, os.getpid())
    try:
        with open(new, "w", encoding="utf-8") as file:
            file.write(prometheus(*globs, labels=labels))
        os.replace(new, path)
    except BaseException:
        if os.path.exists(new):
            os.unlink(new)
        raise
