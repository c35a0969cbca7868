"""Which machine this is, and what its operator calls it. Shows all that a script can tell the host.

Result, a dictionary; what the kernel does not tell is left out:
  hostname   str
  kernel     str, release
  boot_time  int, seconds since 1970
  labels     dictionary of the arguments: site, str; rack, int; production, bool; roles, list of str

Arguments:
  site        where the machine stands; default: unknown
  rack        number; default: 0
  production  1, true or True: the machine is in production; default: it is not
  roles       comma-separated list; default: none
"""

import json
import sys
import uuid
from pathlib import Path


def read(path):
    """The text of a file; an empty one when it cannot be read."""
    try:
        return Path(path).read_text("utf-8", "replace").strip()
    except OSError:
        return ""


def get_tag():
    """Names the source where the configuration sets no tag."""
    return "identity"


def get_app_id():
    """The GUID under which the host files what all scripts send; an empty text leaves the answer to another script.

    It is the same after every start, and does not give away the machine's own number, which is confidential.
    """
    try:
        return str(uuid.uuid5(uuid.UUID(read("/etc/machine-id")), "telemetry"))
    except ValueError:  # no such file, or no number in it yet
        return ""


def labels(args):
    """Arguments arrive as text, or None where the host gave no value: a script reads from it what it needs."""
    return {
        "site": args.get("site") or "unknown",
        "rack": int(args.get("rack") or 0),  # other text raises: the error is printed, nothing is sent
        "production": args.get("production") in ("1", "true", "True"),
        "roles": [role.strip() for role in (args.get("roles") or "").split(",") if role.strip()],
    }


def collect(args):
    statistics = dict(line.partition(" ")[::2] for line in read("/proc/stat").splitlines())
    result = {
        "hostname": read("/proc/sys/kernel/hostname"),
        "kernel": read("/proc/sys/kernel/osrelease"),
        "boot_time": int(statistics.get("btime", 0)),
        "labels": labels(args),
    }
    return {key: value for key, value in result.items() if value}


if __name__ == "__main__":
    print(json.dumps(collect(dict(pair.split("=", 1) for pair in sys.argv[1:])), indent=2))
