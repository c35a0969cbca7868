"""Counts the instructions of a collection and compares them with the recorded ones: scripts/bench-instructions runs this
with the bench executable, the library, the shapes and perhaps --record.

Instructions are repeatable where times are not, for one compiler, C library and Python: under other conditions than the
recorded ones the counts are shown and not judged.
"""

import json
import os
import re
import subprocess
import sys
import tempfile

import shapes

BENCH = sys.argv[1:4]
RECORD = "--record" in sys.argv
BASELINE = os.path.join(os.path.dirname(__file__), "instructions.json")
GROWTH_ALLOWED = 1.05


def count(shape):
    """Instructions per token of a warm collection, Python's and the writer's included."""
    with tempfile.NamedTemporaryFile() as out:
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", "--callgrind-out-file=" + out.name]
            + ["--toggle-collect=WatchedCollection", *BENCH, "walk", shape],
            check=True,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            universal_newlines=True,
            env={**os.environ, "PYTHONHASHSEED": "0"},
        )
    instructions = int(re.search(r"Collected : (\d+)", done.stderr).group(1))
    if instructions == 0:
        sys.exit("callgrind did not see the collection")
    return instructions / int(done.stdout)


def main():
    libc = os.confstr("CS_GNU_LIBC_VERSION")
    conditions = "%s; %s" % (os.environ["CONDITIONS"], libc)
    counts = {shape: round(count(shape), 1) for shape in shapes.SHAPES if shape not in shapes.FRESH}
    if RECORD:
        with open(BASELINE, "w") as file:
            json.dump({"conditions": conditions, "instructions per token": counts}, file, indent=2)
            file.write("\n")
    baseline = json.load(open(BASELINE))
    recorded = baseline["instructions per token"]
    same = baseline["conditions"] == conditions
    print("Conditions: " + conditions)
    if not same:
        print("Recorded under others, so nothing is judged: " + baseline["conditions"])
    grown = 0
    for shape, now in counts.items():
        too_many = now > recorded[shape] * GROWTH_ALLOWED
        grown += too_many
        print("%-32s %8.1f instructions a token, recorded %8.1f%s" % (shape, now, recorded[shape], " !" * too_many))
    if same and grown:
        sys.exit("%d shapes take over 5 %% more instructions. If that is meant: scripts/bench-instructions --record" % grown)


main()
