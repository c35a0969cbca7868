"""How the scripts of this host are doing: a source that shows which one is slow or failing.

Result, a list with a dictionary per script, this one included:
  tag                    str, the name of its source
  path                   str
  collections_begun      int
  collections_completed  int
  collections_failed     int; what is neither completed nor failed is under way
  values_left_out        int, what a tolerant script returned and no host can be sent
  tokens_written         int
  tokens_refused         int, tries at which the host had no room
  seconds_last           float, the time in the script's function: in its last collection,
  seconds_longest        float, in the longest one,
  seconds_all            float, and in all of them
All figures begin anew when the host initialises the plug-in. Outside the plug-in the list is empty.
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
