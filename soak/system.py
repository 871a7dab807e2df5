"""The system's figures of processes, sockets and message queues."""
import ctypes
import os
import time

LIBC = ctypes.CDLL(None, use_errno=True)


class RequestQueue:
    """The daemon's queue, to send to without waiting."""

    def __enter__(self):
        self.queue = LIBC.mq_open(b"/mainstay", os.O_WRONLY | os.O_NONBLOCK)
        return self

    def send(self, message):
        LIBC.mq_send(self.queue, message, ctypes.c_size_t(len(message)), 0)

    def __exit__(self, *_):
        LIBC.mq_close(self.queue)


def unlink_queues(process):
    """Removes the response queues of a process that ended. Returns how many there were."""
    return sum(LIBC.mq_unlink(b"/mqd_%d_%d" % (process & 0xFFFF, number)) == 0 for number in range(200))


def resources(process):
    """Open descriptors, threads, resident kilobytes."""
    base = f"/proc/{process}"
    with open(f"{base}/status") as status:
        resident = next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))
    return len(os.listdir(f"{base}/fd")), len(os.listdir(f"{base}/task")), resident


def _udp_sockets(process):
    """Of each UDP socket of a process: inode, bytes that wait, datagrams lost for want of room."""
    with open("/proc/net/udp") as table:
        rows = {row[9]: row for row in (line.split() for line in table)}
    base = f"/proc/{process}/fd"
    for name in os.listdir(base):
        try:
            inode = os.readlink(f"{base}/{name}").removeprefix("socket:[").rstrip("]")
        except FileNotFoundError:
            continue  # closed meanwhile
        if inode in rows:
            yield inode, int(rows[inode][4].split(":")[1], 16), int(rows[inode][12])


def waiting_datagrams(process):
    return any(waiting for _, waiting, _ in _udp_sockets(process))


def lost_datagrams(process):
    """By inode."""
    return {inode: lost for inode, _, lost in _udp_sockets(process)}


def wait_until(condition, seconds):
    """Returns whether it came true in time."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True
