#!/usr/bin/env python3
"""Resident memory of a running marlune-app as the library grows through the command line.

    memory_bench.py APP TOOL

Starts the application headless on a library of its own, then prints its resident memory
(VmRSS) and the peak (VmHWM):
  - at start;
  - after `clip import` of 10,000 clips, and after reaching 100,000 (imported 10,000 at a time,
    as one request carries at most 16 MiB);
  - after 1,000 undoable changes (snippets created and renamed).
Goals, beside the figures: 100,000 clips within 40 MB of the resident memory after the first
10,000 (the clips' own working set is in the store file, not in memory), and the undo history
bounded (the 1,000 changes add under 20 MB).
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import time


def status(pid, key):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith(key + ":"):
                return int(line.split()[1]) / 1024.0
    return -1.0


def clips(start, count):
    out = []
    for i in range(start, start + count):
        text = (f"Copied line {i}: a sentence of ordinary length, as most copies are, "
                f"with a number {i * 7919 % 100003} in it.")
        out.append({
            "primaryKind": "text",
            "previewText": text[:80],
            "representations": [{"utType": "text/plain", "text": text, "hasText": True}],
        })
    return out


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    app, tool = (os.path.abspath(p) for p in sys.argv[1:])
    home = tempfile.mkdtemp(prefix="marlune-memory-bench.")
    env = dict(os.environ, MARLUNE_HOME=home)
    env.pop("DISPLAY", None)
    env.pop("WAYLAND_DISPLAY", None)
    process = subprocess.Popen([app], env=env, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    rows = []

    def run(*args, check=True):
        done = subprocess.run([tool, "--no-launch", *args], env=env, capture_output=True,
                              text=True)
        if check and done.returncode != 0:
            raise SystemExit(f"marlune {' '.join(args)} failed: {done.stderr.strip()}")
        return done

    def record(what):
        time.sleep(0.5)
        rows.append((what, status(process.pid, "VmRSS"), status(process.pid, "VmHWM")))

    try:
        for _ in range(200):
            if run("ping", check=False).returncode == 0:
                break
            time.sleep(0.05)
        else:
            raise SystemExit("marlune-app did not answer")
        record("at start")
        batch = os.path.join(home, "clips.json")
        imported = 0
        started = time.monotonic()
        for target in (10_000, 100_000):
            while imported < target:
                with open(batch, "w") as f:
                    json.dump(clips(imported, 10_000), f)
                run("clip", "import", batch)
                imported += 10_000
            record(f"after importing {imported:,} clips")
        import_seconds = time.monotonic() - started
        for i in range(500):
            created = json.loads(run("--json", "snippet", "create", f"note {i}",
                                     "--content", f"Body of note {i}").stdout)
            run("snippet", "update", created["id"], "--title", f"renamed note {i}")
        record("after 1,000 undoable changes")
    finally:
        process.terminate()
        process.wait(timeout=10)
        shutil.rmtree(home, ignore_errors=True)

    print(f"{'':36} {'resident':>10} {'peak':>10}")
    for what, rss, hwm in rows:
        print(f"{what:36} {rss:8.1f} MB {hwm:8.1f} MB")
    print(f"importing 100,000 clips took {import_seconds:.1f} s")


if __name__ == "__main__":
    main()
