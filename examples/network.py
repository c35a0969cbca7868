"""Network traffic of each interface.

Result: a list with a dictionary per interface. Values that the kernel does not provide are left out.
  name                                         str
  up                                           bool, false if it is switched off or its link is known to be down
  mtu                                          int, bytes
  speed_mbps                                   int, Mbit/s
  rx_bytes, rx_packets, rx_errors, rx_dropped  int, received since the interface was added
  tx_bytes, tx_packets, tx_errors, tx_dropped  int, sent

Arguments:
  interfaces  comma-separated names of the interfaces to report; default: all
"""

import json
import sys
from pathlib import Path

COUNTERS = ("bytes", "packets", "errors", "dropped")
IFF_UP = 0x1


def read(path):
    """The text of a file. Empty if it cannot be read."""
    try:
        return Path(path).read_text("utf-8", "replace").strip()
    except (OSError, ValueError):  # ValueError: the locale cannot encode the path
        return ""


def link(name):
    directory = f"/sys/class/net/{name}/"
    result = {}
    flags = read(directory + "flags")
    if flags:
        # The loopback and other virtual interfaces have no link. Their state is "unknown".
        result["up"] = bool(int(flags, 16) & IFF_UP) and read(directory + "operstate") in ("up", "unknown")
    for key, file_name in (("mtu", "mtu"), ("speed_mbps", "speed")):
        number = int(read(directory + file_name) or 0)
        if number > 0:  # -1 if the speed is unknown
            result[key] = number
    return result


def collect(args):
    wanted = {name.strip() for name in (args.get("interfaces") or "").split(",")} - {""}
    result = []
    for line in read("/proc/net/dev").splitlines()[2:]:  # after two heading lines
        name, _, numbers = line.partition(":")
        name = name.strip()
        if wanted and name not in wanted:
            continue
        interface = {"name": name, **link(name)}
        counters = [int(number) for number in numbers.split()]  # eight received, eight sent
        interface.update(zip(("rx_" + counter for counter in COUNTERS), counters))
        interface.update(zip(("tx_" + counter for counter in COUNTERS), counters[8:]))
        result.append(interface)
    return result


if __name__ == "__main__":
    print(json.dumps(collect(dict(pair.split("=", 1) for pair in sys.argv[1:])), indent=2))
