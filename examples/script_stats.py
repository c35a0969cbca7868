"""Figures of all scripts in this host: shows which script is slow or fails.

Result: a list with a dictionary per script, including this one.
  tag                    str, the name of its source
  path                   str
  collections_begun      int
  collections_completed  int
  collections_failed     int; a collection that is neither completed nor failed is still running
  values_left_out        int, values of a tolerant script that cannot be sent
  tokens_written         int
  tokens_refused         int, tokens that the host did not take and that were offered again
  seconds_last           float, time spent in the script's function, in its last collection
  seconds_longest        float, the same in the longest collection
  seconds_all            float, the same in all collections
All figures restart at 0 when the host initialises the plug-in. Outside the plug-in the list is empty.
"""

import json

try:
    import rubruf
except ImportError:
    rubruf = None


def collect(args):
    return rubruf.stats() if rubruf else []


if __name__ == "__main__":
    print(json.dumps(collect({}), indent=2))
