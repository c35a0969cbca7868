"""Temperatures and fan speeds, from the kernel's hardware monitoring.

Result: a dictionary of two lists. A list without items is left out, and so are sensors that cannot be read.
  temperatures  a dictionary per sensor: device, chip and label, all str; celsius, float
  fans          a dictionary per fan: device, chip and label, all str; rpm, int
The device, such as "hwmon0", distinguishes chips of the same name. It may change when the machine restarts. The label
comes from the driver. Without one it is the sensor's name, such as "temp1".

Arguments:
  root  directory of the chips; default: /sys/class/hwmon
"""

import json
import sys
from pathlib import Path


def read(path):
    """The text of a file. Empty if it cannot be read."""
    try:
        return path.read_text("utf-8", "replace").strip()
    except OSError:
        return ""


def readings(root, kind):
    """Yields the names and the reading of each sensor of a kind, "temp" or "fan"."""
    for path in sorted(Path(root).glob(f"hwmon*/{kind}*_input")):
        number = read(path)
        if number:
            sensor = path.name[: -len("_input")]
            device = path.parent.name
            chip = read(path.with_name("name")) or device
            label = read(path.with_name(sensor + "_label")) or sensor
            yield {"device": device, "chip": chip, "label": label}, int(number)


def collect(args):
    root = args.get("root") or "/sys/class/hwmon"
    result = {
        "temperatures": [{**sensor, "celsius": number / 1000} for sensor, number in readings(root, "temp")],
        "fans": [{**sensor, "rpm": number} for sensor, number in readings(root, "fan")],
    }
    return {kind: sensors for kind, sensors in result.items() if sensors}


if __name__ == "__main__":
    print(json.dumps(collect(dict(pair.split("=", 1) for pair in sys.argv[1:])), indent=2))
