"""The machine's identity and its operator's labels. Shows every function that the host can call in a script.

Result: a dictionary. Values that the kernel does not provide are left out.
  hostname   str
  kernel     str, release
  boot_time  int, seconds since 1970
  labels     dictionary made from the arguments: site, str; rack, int; production, bool; roles, list of str

Arguments:
  site        the machine's place; default: unknown
  rack        a number; default: 0
  production  1, true or True if the machine is in production; default: it is not
  roles       comma-separated names; default: none
"""

import json
import sys
import uuid
from pathlib import Path


def read(path):
    """The text of a file. Empty if it cannot be read."""
    try:
        return Path(path).read_text("utf-8", "replace").strip()
    except OSError:
        return ""


def get_tag():
    """The source's name, if the configuration sets no tag."""
    return "identity"


def get_app_id():
    """The application ID, a GUID that the host gets with the data of all scripts. If empty, the next script is asked.

    It is the same after every start. It does not reveal the machine ID, which is confidential.
    """
    try:
        return str(uuid.uuid5(uuid.UUID(read("/etc/machine-id")), "telemetry"))
    except ValueError:  # no such file, or no ID in it yet
        return ""


def labels(args):
    """Converts the arguments, which are texts, or None if the host set no value."""
    return {
        "site": args.get("site") or "unknown",
        "rack": int(args.get("rack") or 0),  # raises if it is no number: the host then gets no data
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
