"""The script of the soak: each collection returns the result that the program has set with call().

All scripts share this module and differ in their options. Binding a script appends its directory to sys.path. collect()
restores sys.path, because otherwise it would grow with every life of the provider in this interpreter.
"""

import gc
import sys


class Nowhere:
    """Discards the tracebacks of scripts that raise on purpose."""

    def write(self, text):
        pass

    def flush(self):
        pass


sys.stderr = Nowhere()
# Newer Pythons import modules when they print their first error. Done here, so that the first life does not grow by it.
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
    return "".join(["so", "ak"])  # a new object each time, so that a lost reference to it is found


def call(function, text):
    return str(globals()[function](text))


def compute(statements):
    """Runs the statements; the next collection returns their `result`, as its only owner, and any later one raises."""
    global produce
    scope = {}
    exec(statements, scope)
    produce = [scope["result"]].pop


def references(_text):
    """The number of references in the interpreter, or of its blocks of memory if it does not count references."""
    sys._clear_type_cache()  # the cache holds references to names of attributes, more of them after each life
    gc.collect()
    return getattr(sys, "gettotalrefcount", sys.getallocatedblocks)()
