"""Times one import in this interpreter: import_probe.py <folder> <module> [library...].

Prints nanoseconds as a list in JSON: of loading each library first, in order, and of the import.
"""

import sys
import time

folder, module, *libraries = sys.argv[1:]
sys.path.insert(0, folder)
taken = []
if libraries:
    import ctypes

    ctypes.CDLL(None)  # the first use has costs of its own
    for library in libraries:
        start = time.perf_counter_ns()
        ctypes.CDLL(library)
        taken.append(time.perf_counter_ns() - start)
start = time.perf_counter_ns()
__import__(module)
taken.append(time.perf_counter_ns() - start)
print(taken)
