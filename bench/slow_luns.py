#!/usr/bin/python3
# Blank LUNs that answer as a SAN does: a FUSE file system of N zero-filled files, each read answered
# after a fixed delay (the round trip to an array), with the kernel's cache of them turned off so that
# every read of a loop device made over one of them pays that delay. bench/slow_san.sh makes the loop
# devices and runs the programs; this serves the files until it is unmounted.
#
#   bench/slow_luns.py MOUNTPOINT --luns N [--size MiB] [--latency MS]
#
# Reads are served on as many threads as the kernel sends requests at once, as an array serves many
# commands at a time; nothing can be written.
import argparse
import errno
import stat
import threading
import time

import fusepy


class SlowLuns(fusepy.Operations):
    def __init__(self, luns, size, latency):
        self.names = {f"lun{i:05d}" for i in range(luns)}
        self.size = size
        self.latency = latency
        self.reads = 0
        self.lock = threading.Lock()

    def getattr(self, path, fh=None):
        now = time.time()
        if path == "/":
            return {"st_mode": stat.S_IFDIR | 0o555, "st_nlink": 2, "st_atime": now, "st_mtime": now,
                    "st_ctime": now}
        if path[1:] not in self.names:
            raise fusepy.FuseOSError(errno.ENOENT)
        return {"st_mode": stat.S_IFREG | 0o444, "st_nlink": 1, "st_size": self.size, "st_atime": now,
                "st_mtime": now, "st_ctime": now}

    def readdir(self, path, fh):
        return [".", ".."] + sorted(self.names)

    def open(self, path, fi):
        if path[1:] not in self.names:
            raise fusepy.FuseOSError(errno.ENOENT)
        if fi.flags & 3 != 0:
            raise fusepy.FuseOSError(errno.EROFS)
        fi.direct_io = True  # every read comes here; nothing is kept in the kernel's cache
        return 0

    def read(self, path, length, offset, fi):
        time.sleep(self.latency)
        with self.lock:
            self.reads += 1
        return bytes(max(0, min(length, self.size - offset)))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("mountpoint")
    parser.add_argument("--luns", type=int, default=1000)
    parser.add_argument("--size", type=int, default=64, help="MiB")
    parser.add_argument("--latency", type=float, default=1.0, help="ms a read")
    a = parser.parse_args()
    fusepy.FUSE(SlowLuns(a.luns, a.size << 20, a.latency / 1000.0), a.mountpoint, foreground=True,
                raw_fi=True, ro=True, allow_other=True)


if __name__ == "__main__":
    main()
