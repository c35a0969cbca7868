"""Disks: what each block device has read and written, and how full its file systems are.

Result: a dictionary of two lists. A list without items is left out.
  devices       a dictionary per block device, except partitions and devices of size 0:
    name                     str
    size_bytes               int
    reads, writes            int, completed since the device was added
    read_bytes, write_bytes  int
    in_flight                int, requests that are not completed yet
  file_systems  a dictionary per mounted device, with its first mount point:
    device, mount_point, type                 str
    total_bytes, free_bytes, available_bytes  int; free bytes that are not available are reserved for root
    inodes_total, inodes_free                 int; 0 where the file system has no fixed number

Arguments: none.
"""

import json
import os
from pathlib import Path

SECTOR_BYTES = 512  # the kernel's unit for all devices


def read(path):
    """The bytes of a file, because paths in it may not be valid text. Empty if it cannot be read."""
    try:
        return Path(path).read_bytes()
    except OSError:
        return b""


def devices():
    for line in read("/proc/diskstats").decode("ascii", "replace").splitlines():
        name, reads, _, sectors_read, _, writes, _, sectors_written, _, in_flight = line.split()[2:12]
        # Partitions have no directory in /sys/block. A "/" in a device's name is written as "!" there.
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
        # Other file systems have no device, or are on another machine, and then statvfs may block.
        if line.startswith(b"/dev/"):
            device, mount_point, kind = line.split(b" ")[:3]
            mounted.setdefault(device, (mount_point, kind))
    for device, (mount_point, kind) in mounted.items():
        path = mount_point.decode("unicode_escape").encode("latin-1")  # a blank is written as "\040"
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
