#!/usr/bin/env python3
"""Whole-process start-up benchmark of the launcher beside minimal Qt programs.

Measures, in one run and interleaved:
  - start to window shown: zelna-quorin against minimal_window (same Main.ui);
  - the checker round trip: `zelna-quorin checkVersion` against a local feed with
    no newer version, beside minimal_checker fetching the same feed.
Usage: bench/startup.py [BUILD_DIR] [RUNS]
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")
runs = int(sys.argv[2]) if len(sys.argv) > 2 else 20
launcher = os.path.join(build, "bin", "zelna-quorin")
main_ui = os.path.join(build, "share", "zelna-quorin", "Main.ui")
minimal_window = os.path.join(build, "bench", "minimal_window")
minimal_checker = os.path.join(build, "bench", "minimal_checker")

home = tempfile.mkdtemp(prefix="zq-startup-")
fakebin = os.path.join(home, "bin")
os.makedirs(fakebin)
shutil.copy("/bin/true", os.path.join(fakebin, "pluginkit"))
runtime = os.path.join(home, "runtime")
os.makedirs(runtime, mode=0o700)
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
with open(os.path.join(build, "share", "zelna-quorin", "Info.plist")) as f:
    info = f.read()
start = info.index("<key>SUFeedURL</key>")
end = info.index("</string>", start) + len("</string>")
info = info[:start] + "<key>SUFeedURL</key>\n\t<string>" + feed_url + "</string>" + info[end:]
with open(os.path.join(bundle, "share", "zelna-quorin", "Info.plist"), "w") as f:
    f.write(info)
bundled = os.path.join(bundle, "bin", "zelna-quorin")

env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
           XDG_DATA_HOME=os.path.join(home, "data"), XDG_RUNTIME_DIR=runtime,
           PATH=fakebin + ":" + os.environ.get("PATH", ""), QT_QPA_PLATFORM="offscreen",
           QT_LOGGING_RULES="zelna.launcher.debug=true")


def until_shown(command):
    """Seconds from start until the window-shown line, then the process is ended."""
    begin = time.perf_counter()
    process = subprocess.Popen(command, env=env, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL)
    for line in process.stderr:
        if b"window shown" in line:
            elapsed = time.perf_counter() - begin
            break
    else:
        raise SystemExit("no window from " + " ".join(command))
    process.kill()
    process.wait()
    return elapsed


def round_trip(command):
    begin = time.perf_counter()
    # No timeout: waiting with one makes Python poll with growing sleeps, which blurs the figures.
    result = subprocess.run(command, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    elapsed = time.perf_counter() - begin
    if result.returncode != 0:
        raise SystemExit(" ".join(command) + " ended with " + str(result.returncode))
    return elapsed


cases = {
    "window: zelna-quorin": lambda: until_shown([bundled]),
    "window: minimal Qt": lambda: until_shown([minimal_window, main_ui]),
    "checker: zelna-quorin checkVersion": lambda: round_trip([bundled, "checkVersion"]),
    "checker: minimal Qt (QApplication)": lambda: round_trip([minimal_checker, feed_url]),
    "checker: minimal Qt (QCoreApplication)": lambda: round_trip([minimal_checker, "--core", feed_url]),
}
times = {name: [] for name in cases}
for name, case in cases.items():  # warm-up
    case()
for _ in range(runs):
    for name, case in cases.items():
        times[name].append(case())

median = {name: statistics.median(values) * 1000 for name, values in times.items()}
for name, value in median.items():
    print(f"{name:42s} median {value:7.1f} ms over {runs} runs")
print(f"window ratio  : {median['window: zelna-quorin'] / median['window: minimal Qt']:.2f}")
print(f"checker ratio : {median['checker: zelna-quorin checkVersion'] / median['checker: minimal Qt (QApplication)']:.2f}"
      f" (against QCoreApplication: {median['checker: zelna-quorin checkVersion'] / median['checker: minimal Qt (QCoreApplication)']:.2f})")
shutil.rmtree(home, ignore_errors=True)
