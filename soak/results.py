"""The script of the soak: it returns what the program has put in place through call(), and keeps nothing of it.

One module serves all scripts; they differ in their options. Each binding of a script appends to sys.path, which
collect() cuts back, since the interpreter outlives many bindings here.
"""

import gc
import sys


class Nowhere:
    """Where the tracebacks of scripts that are meant to raise go."""

    def write(self, text):
        pass

    def flush(self):
        pass


sys.stderr = Nowhere()
# Newer versions import modules to print the first error. Here that is a part of loading the script.
sys.excepthook(ValueError, ValueError("meant"), None)
path = list(sys.path)
produce = None  # makes the next result


def collect(args):
    sys.path[:] = path
    assert args == {"kept": "text"}, args
    result = produce()
    if isinstance(result, Exception):
        raise result
    return result


def get_tag():
    return "".join(["so", "ak"])  # made anew, so that a lost one counts


def call(function, text):
    return str(globals()[function](text))


def compute(statements):
    """Has the next collection return what these leave in `result`, held by nobody else; any later one raises."""
    global produce
    scope = {}
    exec(statements, scope)
    produce = [scope["result"]].pop


def references(_text):
    """All references in the interpreter; where it does not count them, the blocks of memory that its objects take."""
    sys._clear_type_cache()  # it keeps names of attributes, a few more with every life
    gc.collect()
    return getattr(sys, "gettotalrefcount", sys.getallocatedblocks)()
