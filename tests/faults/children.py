"""Failures in child processes: what they say, and where they ended if they say nothing."""
import os
import signal

LONGEST = 60  # seconds for one operation, on a busy machine

_progress = os.memfd_create("progress")


def note(n):
    """Writes down which operation is about to fail, and ends the process where it hangs."""
    os.pwrite(_progress, b"%8d" % n, 0)
    signal.alarm(LONGEST)


def in_child(function):
    """What the function says, which a child process calls with `note`; how the child ended where
    it says nothing."""
    readable, writable = os.pipe()
    pid = os.fork()
    if pid == 0:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
        try:
            answer = function(note)
        except BaseException as error:
            answer = "%s: %s" % (type(error).__name__, error)
        os.write(writable, answer.encode())
        os._exit(0)
    os.close(writable)
    with os.fdopen(readable, "rb") as answers:
        answer = answers.read().decode()
    status = os.waitpid(pid, 0)[1]
    if status != 0:
        return "operation %s ended the process, status %d" % (
            os.pread(_progress, 8, 0).decode().strip(), status)
    return answer
