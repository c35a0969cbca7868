"""Loads scripts as modules of their own, as the plug-in does for the option "own-module".

Runs in the plug-in's interpreter, for "rubruf-host check". The plug-in loads such a script through importlib.util. While
the checker binds scripts, importlib.util gives the plug-in the module that the checker has loaded.
"""

import importlib.util
import sys
from importlib.machinery import ModuleSpec

find_spec = importlib.util.spec_from_file_location

_loaded = {}  # a script's path -> its modules that the plug-in has not asked for yet


def load_own(path, name):
    """Loads the script as the module `name`."""
    spec = find_spec(name, path)
    module = importlib.util.module_from_spec(spec)
    sys.modules[name] = module
    try:
        spec.loader.exec_module(module)
    except BaseException:
        sys.modules.pop(name, None)
        raise
    module = sys.modules.get(name, module)  # a script may have put something in its place
    hand_out(path, module)
    return module


def hand_out(path, module):
    """From now on the plug-in gets `module` when it loads the script."""
    _loaded.setdefault(path, []).append(module)


def loaded_spec(name, location=None, **kwargs):
    """Replaces importlib.util.spec_from_file_location."""
    if name.startswith("rubruf_script_") and _loaded.get(location):
        return ModuleSpec(name, _Loaded(_loaded[location].pop(0)), origin=location)
    return find_spec(name, location, **kwargs)


class _Loaded:
    """The loader of a module that is loaded already."""

    def __init__(self, module):
        self.module = module
        self.spec = getattr(module, "__spec__", None)

    def create_module(self, _):
        return self.module

    def exec_module(self, module):
        module.__spec__ = self.spec
