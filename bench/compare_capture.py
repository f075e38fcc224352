#!/usr/bin/env python3
"""Compare the CPU time of a capture at 10 frames per second with its peers.

usage: compare_capture.py [QELVIDEO] [--rounds N] [--size WxH] [--window]

Of the display, or of a window that fills it.

Starts one private Xvfb and runs each program in turn over 10 and over 110 frames; the difference is 100
frames without the start-up. Prints milliseconds of CPU time per frame, of the program and of the X server,
and the ratios to the first peer. Peers that are not installed are left out.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import time

SHORT, LONG = 10, 110


class Server:
    def __init__(self, size):
        read, write = os.pipe()
        self.process = subprocess.Popen(
            ["Xvfb", "-screen", "0", f"{size}x24", "-noreset", "-nolisten", "tcp", "-displayfd", str(write)],
            pass_fds=[write], stderr=subprocess.DEVNULL)
        os.close(write)
        self.display = ":" + os.read(read, 16).decode().strip()

    def cpu(self):
        """Seconds on a processor so far."""
        with open(f"/proc/{self.process.pid}/schedstat") as stat:
            return int(stat.read().split()[0]) / 1e9

    def stop(self):
        self.process.terminate()
        self.process.wait()


def run(command, display):
    """CPU seconds of the command."""
    process = subprocess.Popen(command, env={**os.environ, "DISPLAY": display},
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    errors = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode:
        sys.exit(f"{command[0]} failed: {errors.decode()[-500:]}")
    return usage.ru_utime + usage.ru_stime


def show_window(display, size):
    """The process that shows it, and its number."""
    process = subprocess.Popen(["xlogo", "-bw", "0", "-geometry", size + "+0+0"], env={**os.environ, "DISPLAY": display})
    while True:
        time.sleep(0.2)
        tree = subprocess.run(["xwininfo", "-display", display, "-root", "-tree"], capture_output=True, text=True)
        for line in tree.stdout.splitlines():
            if '"xlogo"' in line:
                return process, int(line.split()[0], 16)


def commands(qelvideo, size, display, window):
    def ffmpeg(frames):
        what = ["-window_id", str(window)] if window else ["-video_size", size]
        return ["ffmpeg", "-nostdin", "-loglevel", "error", "-f", "x11grab", "-framerate", "10", *what,
                "-i", display, "-frames:v", str(frames), "-f", "null", "-"]

    def gstreamer(frames):
        what = [f"xid={window}"] if window else []
        return ["gst-launch-1.0", "-q", "ximagesrc", *what, "use-damage=0", f"num-buffers={frames}", "!",
                "video/x-raw,framerate=10/1", "!", "fakesink"]

    def ours(frames):
        return [qelvideo, "capture", str(window or "screen"), "--frames", str(frames)]

    return {name: make for name, make in (("ffmpeg x11grab", ffmpeg), ("gst ximagesrc", gstreamer), ("qelvideo", ours))
            if shutil.which(make(1)[0])}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("qelvideo", nargs="?", default="build/bench/bin/qelvideo")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--size", default="1920x1080")
    parser.add_argument("--window", action="store_true")
    options = parser.parse_args()
    server = Server(options.size)
    shown, window = show_window(server.display, options.size) if options.window else (None, None)
    try:
        programs = commands(options.qelvideo, options.size, server.display, window)
        table = {name: ([], []) for name in programs}
        for _ in range(options.rounds):
            for name, make in programs.items():
                client, served = [], []
                for frames in (SHORT, LONG):
                    before = server.cpu()
                    client.append(run(make(frames), server.display))
                    served.append(server.cpu() - before)
                table[name][0].append((client[1] - client[0]) / (LONG - SHORT) * 1000)
                table[name][1].append((served[1] - served[0]) / (LONG - SHORT) * 1000)
        medians = {name: [statistics.median(values) for values in pair] for name, pair in table.items()}
        first = next(iter(medians.values()))[0]
        print(f"{'program':16} {'client ms/frame':>16} {'ratio':>6} {'X server ms/frame':>18}")
        for name, (client, served) in medians.items():
            print(f"{name:16} {client:16.2f} {client / first:6.2f} {served:18.2f}")
    finally:
        if shown:
            shown.terminate()
            shown.wait()
        server.stop()


if __name__ == "__main__":
    main()
