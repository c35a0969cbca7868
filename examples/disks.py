"""What the block devices have read and written, and how full the file systems on them are.

Result, a dictionary of two lists; an empty list is left out:
  devices       a dictionary per block device, without partitions and devices of no size:
    name                     str
    size_bytes               int
    reads, writes            int, completed since the device came into being
    read_bytes, write_bytes  int
    in_flight                int, requests under way
  file_systems  a dictionary per mounted device, at the first place where it is mounted:
    device, mount_point, type                 str
    total_bytes, free_bytes, available_bytes  int; what is free but not available is kept for the superuser
    inodes_total, inodes_free                 int; 0 where the file system has no fixed number

Arguments: none.
"""

import json
import os
from pathlib import Path

SECTOR_BYTES = 512  # the kernel's unit, whatever the device's own


def read(path):
    """The bytes of a file, since paths in it need not be text; none when it cannot be read."""
    try:
        return Path(path).read_bytes()
    except OSError:
        return b""


def devices():
    for line in read("/proc/diskstats").decode("ascii", "replace").splitlines():
        name, reads, _, sectors_read, _, writes, _, sectors_written, _, in_flight = line.split()[2:12]
        # Partitions have no directory here, and a "/" of a device's name is a "!".
        sectors = int(read(f"/sys/block/{name.replace('/', '!')}/size") or 0)
        if sectors:
            yield {
                "name": name,
                "size_bytes": sectors * SECTOR_BYTES,
                "reads": int(reads),
                "writes": int(writes),
                "read_bytes": int(sectors_read) * SECTOR_BYTES,
                "write_bytes": int(sectors_written) * SECTOR_BYTES,
                "in_flight": int(in_flight),
            }


def file_systems():
    mounted = {}
    for line in read("/proc/self/mounts").split(b"\n"):
        # Others have no device of their own, or one on another machine, for which the collection might have to wait.
        if line.startswith(b"/dev/"):
            device, mount_point, kind = line.split(b" ")[:3]
            mounted.setdefault(device, (mount_point, kind))
    for device, (mount_point, kind) in mounted.items():
        path = mount_point.decode("unicode_escape").encode("latin-1")  # a blank stands there as "\040"
        try:
            status = os.statvfs(path)
        except OSError:
            continue
        yield {
            "device": device.decode("utf-8", "replace"),
            "mount_point": path.decode("utf-8", "replace"),
            "type": kind.decode("utf-8", "replace"),
            "total_bytes": status.f_blocks * status.f_frsize,
            "free_bytes": status.f_bfree * status.f_frsize,
            "available_bytes": status.f_bavail * status.f_frsize,
            "inodes_total": status.f_files,
            "inodes_free": status.f_ffree,
        }


def collect(args):
    result = {"devices": list(devices()), "file_systems": list(file_systems())}
    return {key: entries for key, entries in result.items() if entries}


if __name__ == "__main__":
    print(json.dumps(collect({}), indent=2))
