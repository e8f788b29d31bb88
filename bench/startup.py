#!/usr/bin/env python3
"""Whole-process start-up benchmark of the launcher beside minimal Qt programs.

Measures, in one run and interleaved:
  - start to window shown: zelna-quorin against minimal_window (same Main.ui);
  - the checker round trip: `zelna-quorin checkVersion` against a local feed with
    no newer version, beside minimal_checker fetching the same feed;
  - the same without a display (as from a timer, cron or ssh), beside
    minimal_core_checker (Qt Core and Network alone, no Qt Gui mapped);
  - resident memory a second after the window is shown, against minimal_window;
  - one enabled launch pass over about 500 processes (bench_servicepass).
Each ratio is printed beside its target. With --plot FILE, the start-up times
are also drawn, launcher beside reference (needs Debian's python3-matplotlib).
The runtime folder is on a memory file system, as a desktop session's is.
With --before OTHER_BUILD, that build's launcher is timed in the same
interleaving, for a before-and-after figure from one run.
Usage: bench/startup.py [BUILD_DIR] [RUNS] [--plot FILE] [--before OTHER_BUILD]
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import json

args = sys.argv[1:]
def option(name):
    if name not in args:
        return None
    at = args.index(name)
    value = args[at + 1]
    del args[at:at + 2]
    return value


plot = option("--plot")
# Another build's launcher (the one before a change), timed in the same interleaving.
before = option("--before")
build = os.path.abspath(args[0] if args else "build")
runs = int(args[1]) if len(args) > 1 else 20
launcher = os.path.join(build, "bin", "zelna-quorin")
main_ui = os.path.join(build, "share", "zelna-quorin", "Main.ui")
minimal_window = os.path.join(build, "bench", "minimal_window")
minimal_checker = os.path.join(build, "bench", "minimal_checker")
minimal_core_checker = os.path.join(build, "bench", "minimal_core_checker")

home = tempfile.mkdtemp(prefix="zq-startup-")
fakebin = os.path.join(home, "bin")
os.makedirs(fakebin)
shutil.copy("/bin/true", os.path.join(fakebin, "pluginkit"))
# A session's runtime folder is a memory file system (/run/user/UID): the
# launcher's lock there costs no disk sync.
shm = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
runtime = tempfile.mkdtemp(prefix="zq-runtime-", dir=shm)
feed = os.path.join(home, "appcast.xml")
with open(feed, "w") as f:
    f.write('<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>'
            '<item><sparkle:version>0.1</sparkle:version></item></channel></rss>')
feed_url = "file://" + feed

# The launcher's bundle, pointed at the local feed.
bundle = os.path.join(home, "bundle")
os.makedirs(os.path.join(bundle, "bin"))
os.makedirs(os.path.join(bundle, "share", "zelna-quorin"))
shutil.copy(launcher, os.path.join(bundle, "bin"))
shutil.copy(main_ui, os.path.join(bundle, "share", "zelna-quorin"))
shutil.copytree(os.path.join(build, "lib"), os.path.join(bundle, "lib"))
with open(os.path.join(build, "share", "zelna-quorin", "Info.plist")) as f:
    info = f.read()
start = info.index("<key>SUFeedURL</key>")
end = info.index("</string>", start) + len("</string>")
info = info[:start] + "<key>SUFeedURL</key>\n\t<string>" + feed_url + "</string>" + info[end:]
with open(os.path.join(bundle, "share", "zelna-quorin", "Info.plist"), "w") as f:
    f.write(info)
bundled = os.path.join(bundle, "bin", "zelna-quorin")
if before:
    # Same bundle, other program: copied beside it so it finds the same Info.plist.
    bundled_before = os.path.join(bundle, "bin", "zelna-quorin-before")
    shutil.copy(os.path.join(os.path.abspath(before), "bin", "zelna-quorin"), bundled_before)

env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
           XDG_DATA_HOME=os.path.join(home, "data"), XDG_RUNTIME_DIR=runtime,
           PATH=fakebin + ":" + os.environ.get("PATH", ""), QT_QPA_PLATFORM="offscreen",
           QT_LOGGING_RULES="zelna.launcher.debug=true")
# No display at all, as a timer, cron or ssh starts a check.
windowless = {name: value for name, value in env.items()
              if name not in ("DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM")}


def until_shown(command, settle=0.0):
    """Seconds from start until the window-shown line, then the process is ended as a session
    ends it (SIGTERM): the launcher then quits as after Quit, removing its lock, where a kill
    would leave a stale lock for the next start to take over, as after a crash.
    With settle, the resident memory in MiB that many seconds later instead."""
    begin = time.perf_counter()
    process = subprocess.Popen(command, env=env, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL)
    for line in process.stderr:
        if b"window shown" in line:
            elapsed = time.perf_counter() - begin
            break
    else:
        raise SystemExit("no window from " + " ".join(command))
    if settle:
        time.sleep(settle)
        with open(f"/proc/{process.pid}/status") as status:
            rss = next(int(l.split()[1]) for l in status if l.startswith("VmRSS:"))
        elapsed = rss / 1024
    process.terminate()
    process.wait()
    return elapsed


def round_trip(command, environment=env):
    begin = time.perf_counter()
    # No timeout: waiting with one makes Python poll with growing sleeps, which blurs the figures.
    result = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    elapsed = time.perf_counter() - begin
    if result.returncode != 0:
        raise SystemExit(" ".join(command) + " ended with " + str(result.returncode))
    return elapsed


cases = {
    "window: zelna-quorin": lambda: until_shown([bundled]),
    "window: minimal Qt": lambda: until_shown([minimal_window, main_ui]),
    "checker: zelna-quorin checkVersion": lambda: round_trip([bundled, "checkVersion"]),
    "checker: minimal Qt (QApplication)": lambda: round_trip([minimal_checker, feed_url]),
    "windowless checker: zelna-quorin": lambda: round_trip([bundled, "checkVersion"], windowless),
    "windowless checker: minimal Qt Core": lambda: round_trip([minimal_core_checker, feed_url], windowless),
}
if before:
    cases["window: zelna-quorin before"] = lambda: until_shown([bundled_before])
    cases["checker: zelna-quorin before"] = lambda: round_trip([bundled_before, "checkVersion"])
    cases["windowless checker: zelna-quorin before"] = lambda: round_trip([bundled_before, "checkVersion"],
                                                                          windowless)
times = {name: [] for name in cases}
for name, case in cases.items():  # warm-up
    case()
for _ in range(runs):
    for name, case in cases.items():
        times[name].append(case())

memory = {"launcher": [], "minimal": []}
for _ in range(5):
    memory["launcher"].append(until_shown([bundled], settle=1.0))
    memory["minimal"].append(until_shown([minimal_window, main_ui], settle=1.0))

# One enabled pass over about 500 processes, from the Google Benchmark program.
result = subprocess.run([os.path.join(build, "bench", "bench_servicepass"), "--benchmark_format=json",
                         "--benchmark_filter=BM_EnabledPassServiceRunning"],
                        capture_output=True, text=True, check=True)
bench = json.loads(result.stdout)["benchmarks"][0]
pass_ms = bench["real_time"] * {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[bench["time_unit"]]

median = {name: statistics.median(values) * 1000 for name, values in times.items()}
for name, value in median.items():
    print(f"{name:42s} median {value:7.1f} ms over {runs} runs")
rss = {name: statistics.median(values) for name, values in memory.items()}
rows = [
    ("start to window shown", median["window: zelna-quorin"], median["window: minimal Qt"], "ms", 1.15),
    ("checker round trip, no update", median["checker: zelna-quorin checkVersion"],
     median["checker: minimal Qt (QApplication)"], "ms", 1.05),
    # A floor, not a target: the reference does none of the launch pass or the synced check time.
    ("windowless checker", median["windowless checker: zelna-quorin"],
     median["windowless checker: minimal Qt Core"], "ms", None),
    ("resident memory, window open and idle", rss["launcher"], rss["minimal"], "MiB", 1.20),
]
print()
print("| What | Launcher | Reference | Ratio | Target |")
print("|---|---|---|---|---|")
for what, ours, reference, unit, target in rows:
    ratio = ours / reference
    mark = "" if target is None or ratio <= target else " (over)"
    goal = "—" if target is None else f"≤ {target:.2f}"
    print(f"| {what} | {ours:.1f} {unit} | {reference:.1f} {unit} | {ratio:.2f}{mark} | {goal} |")
mark = "" if pass_ms < 5 else " (over)"
print(f"| one enabled launch pass, 500 processes | {pass_ms:.1f} ms{mark} | — | — | < 5 ms |")
if before:
    print(f"before: window {median['window: zelna-quorin before'] / median['window: minimal Qt']:.2f}, "
          f"checker {median['checker: zelna-quorin before'] / median['checker: minimal Qt (QApplication)']:.2f}, "
          f"windowless checker {median['windowless checker: zelna-quorin before'] / median['windowless checker: minimal Qt Core']:.2f}")

if plot:
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        raise SystemExit("--plot needs matplotlib: apt-get install python3-matplotlib, "
                         "and run this with Debian's /usr/bin/python3")
    names = list(times)
    figure, axes = plt.subplots(figsize=(9, 4.5))
    axes.boxplot([[t * 1000 for t in times[n]] for n in names], vert=False, labels=names)
    axes.set_xlabel(f"milliseconds, {runs} runs each, interleaved")
    axes.set_title("Start-up of the launcher beside minimal Qt programs")
    figure.tight_layout()
    figure.savefig(plot, dpi=100)
    print("plot:", plot)
shutil.rmtree(runtime, ignore_errors=True)
shutil.rmtree(home, ignore_errors=True)
