#!/usr/bin/env python3
"""Compare the CPU time of streaming devices with ffmpeg's, which makes the same frames of the same source.

usage: compare_devices.py [QELVIDEO] [--rounds N] [--size WxH] [--camera PROGRAM] [--formats LIST]

Displays, on a private Xvfb: 30 frames per second of one that changes all the time, since the pointer moves, and
of one that stands still. With --camera, PROGRAM is the emulated camera of the tests, and its pictures are
streamed in each of the formats instead; it has to be startable, which takes FUSE, and the right to make a link
in /dev.

Each program runs over 30 and over 330 frames; the difference is 300 frames without the start-up. Prints
milliseconds of CPU time per frame, and the ratios to ffmpeg.
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile

from compare_capture import Server, run

SHORT, LONG = 30, 330


def ffmpeg(source, frames):
    return ["ffmpeg", "-nostdin", "-loglevel", "error", *source, "-pix_fmt", "nv12", "-frames:v", str(frames), "-f",
            "null", "-"]


def per_frame(make, display):
    """Milliseconds."""
    short, long = (run(make(frames), display) for frames in (SHORT, LONG))
    return (long - short) / (LONG - SHORT) * 1000


def compare(title, display, rounds, theirs, ours):
    table = [(per_frame(theirs, display), per_frame(ours, display)) for _ in range(rounds)]
    their, our = (statistics.median(column) for column in zip(*table))
    print(f"{title:28} ffmpeg {their:7.3f}  qelvideo {our:7.3f}  ratio {our / their:.3f}", flush=True)


def moving_pointer(display):
    """A process that moves it 100 times a second."""
    script = "".join(f"mousemove {x} {x}\nsleep 0.01\n" for x in range(10, 400)) * 200
    file = tempfile.NamedTemporaryFile("w", suffix=".xdotool")
    file.write(script)
    file.flush()
    return file, subprocess.Popen(["xdotool", file.name], env={**os.environ, "DISPLAY": display})


def compare_displays(options):
    server = Server(options.size)
    listed = subprocess.run([options.qelvideo, "list"], env={**os.environ, "DISPLAY": server.display},
                            capture_output=True, text=True, check=True)
    device = next(word for word in listed.stdout.split() if ".AV." in word)
    grab = ["-f", "x11grab", "-framerate", "30", "-video_size", options.size, "-i", server.display]

    def theirs(frames):
        return ffmpeg(grab, frames)

    def ours(frames):
        return [options.qelvideo, "capture", device, "--frames", str(frames)]

    try:
        compare("display that stands still", server.display, options.rounds, theirs, ours)
        file, pointer = moving_pointer(server.display)
        try:
            compare("display that changes", server.display, options.rounds, theirs, ours)
        finally:
            pointer.terminate()
            pointer.wait()
            file.close()
    finally:
        server.stop()


def compare_cameras(options):
    for name in options.formats.split(","):
        with tempfile.TemporaryDirectory() as folder:
            node, link = f"{folder}/node", "/dev/video97"
            camera = subprocess.Popen([options.camera, node, "--card", "Bench", "--formats",
                                       f"{name}:{options.size}@30"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            try:
                if camera.stdout.readline() != b"ready\n":
                    sys.exit("the emulated camera does not start")
                os.symlink(node, link)

                def theirs(frames):
                    return ffmpeg(["-f", "v4l2", "-i", link], frames)

                def ours(frames):
                    return [options.qelvideo, "capture", "Bench", "--frames", str(frames)]

                compare(f"camera of {name}", "", options.rounds, theirs, ours)
            finally:
                if os.path.islink(link):
                    os.unlink(link)
                camera.stdin.close()
                camera.wait()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("qelvideo", nargs="?", default="build/bench/bin/qelvideo")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--size", default="1920x1080")
    parser.add_argument("--camera", metavar="PROGRAM")
    parser.add_argument("--formats", default="YUYV,NV12,MJPG")
    options = parser.parse_args()
    if options.camera:
        compare_cameras(options)
    else:
        compare_displays(options)


if __name__ == "__main__":
    main()
