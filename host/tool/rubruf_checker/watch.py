"""The entry of the checker, and the watch on memory and threads.

Runs in the plug-in's interpreter, for "rubruf-host check".
"""

import gc
import json
import os
import sys
import threading
import time

from rubruf_checker.result import Findings, shown
from rubruf_checker.script import Script, put_back, threads_of
from rubruf_checker.script import take as take_last

_PATIENCE = 1  # seconds that a thread has to end
_PATIENCE_WITH_DAEMONS = 0.1

# Python keeps names of attributes that it has found: memory of its own, which may grow for hundreds of collections.
_clear_caches = getattr(sys, "_clear_internal_caches", None) or getattr(sys, "_clear_type_cache", lambda: None)

_scripts = []  # a Script each, in the order of bind()


def call(function, text):
    """The entry: calls bind, release, take, memory or threads."""
    return globals()[function](text)


def bind(request):
    """Binds the script of {"path": ..., "function": ..., "tolerant": ..., "own_module": ..., "lost": ...}.

    To be called for each script, before the plug-in binds them. Each byte of path and function is a character, because a
    path need not be UTF-8. A script that is lost would end the process, so an empty module takes its place.
    """
    wanted = json.loads(request)
    path, function = (os.fsdecode(wanted[key].encode("latin-1")) for key in ("path", "function"))
    script = Script(len(_scripts) + 1, path, function, wanted["tolerant"], wanted["own_module"])
    _scripts.append(script)
    if wanted["lost"]:
        script.put_stub()
    else:
        script.bind()
    return ""


def release(_):
    """Restores what bind() has changed in modules. Returns the findings for each script."""
    put_back()
    return json.dumps([script.findings.plain() for script in _scripts])


def take(_):
    """The findings of the last collection, once."""
    findings = take_last()
    return json.dumps(findings and findings.plain())


def memory(_):
    """What is in use without garbage and Python's own caches: interpreter blocks, and bytes of resident memory."""
    if gc.isenabled():
        gc.collect()
    _clear_caches()
    blocks = sys.getallocatedblocks()
    with open("/proc/self/smaps_rollup", "rb") as rollup:
        resident = next(int(line.split()[1]) * 1024 for line in rollup if line.startswith(b"Rss:"))
    return json.dumps([blocks, resident])


def threads(number):
    """The findings about the threads of a script, by its number from 0, that are still there."""
    script = _scripts[int(number)]
    findings = Findings()
    start = time.monotonic()
    for thread, owner in list(threads_of.items()):
        if owner is not script or thread is threading.main_thread() or _is_pooled(thread):
            continue
        patience = _PATIENCE_WITH_DAEMONS if thread.daemon else _PATIENCE
        thread.join(max(0, start + patience - time.monotonic()))
        if not thread.is_alive():
            continue
        effect = "stands still between collections: sample in the function"
        if thread.daemon:
            findings.warning(script.path, "the daemon thread %s %s" % (shown(thread.name), effect))
        else:
            message = "the thread %s does not end, and the host waits for that in finalize: make it a daemon thread; it %s"
            findings.error(script.path, message % (shown(thread.name), effect))
    return json.dumps(findings.plain())


def _is_pooled(thread):
    """Whether the thread is one of a pool: it waits for work, and is ended with the interpreter."""
    pools = (("concurrent.futures.thread", "_threads_queues"), ("concurrent.futures.process", "_threads_wakeups"))
    is_feeder = thread.name == "QueueFeederThread"  # of a pool of processes
    return is_feeder or any(thread in getattr(sys.modules.get(module), known, ()) for module, known in pools)
