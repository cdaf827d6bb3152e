"""How the tool fails, and with which exit status."""

from __future__ import annotations

NOTHING_FOUND = 1
BAD_USE = 2
STORE_FAILED = 3
INTERRUPTED = 130


class ToolError(Exception):
    """Ends a command; the text is for the user."""

    status = BAD_USE


class NotFound(ToolError):
    """There is no such object. Without a text nothing is printed."""

    status = NOTHING_FOUND


class StoreFailed(ToolError):
    status = STORE_FAILED


def unusable(argument: str, path: str, error: Exception) -> ToolError:
    """For a file that cannot be read or written."""
    reason = error.strerror if isinstance(error, OSError) else None
    return ToolError("%s: %s: %s" % (argument, path, reason or error))
