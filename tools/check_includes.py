#!/usr/bin/env python3
"""Checks which file includes which: the walls between the library's parts.

Prints each include that crosses a wall and exits with status 1 when there is one.
Usage: check_includes.py [ROOT]
"""

import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*(<([^>]+)>|"([^"]+)")', re.MULTILINE)

# Headers of the operating system's libraries, which only the Linux platform layer may name.
SYSTEM_LIBRARY = re.compile(
    r"^(xcb/|xkbcommon/|X11/|GL/|GLES\d?/|EGL/|KHR/|epoxy/|pixman|libyuv|png\.h|linux/|libudev|nlohmann/|CLI/|vulkan/|volk|turbojpeg|jpeg)"
)

# (files, what they must not include, why). Own includes are written as paths below src/.
RULES = [
    (r"^include/", lambda name, quoted: quoted, "a public header includes other public headers by <QelUtilVideo/…>"),
    (r"^(include|src/(log|capture|render|qelkit|catalogue))/|^src/platform/[^/]+$",
     lambda name, quoted: SYSTEM_LIBRARY.match(name) or name.startswith("platform/linux/"),
     "only src/platform/linux knows the operating system"),
    (r"^src/capture/", lambda name, quoted: name.startswith("render/"), "capture and render do not see each other"),
    (r"^src/render/", lambda name, quoted: name.startswith("capture/"), "capture and render do not see each other"),
    (r"^src/capture/[^/]+$", lambda name, quoted: re.match(r"capture/(windowlist|device)/", name),
     "the shared part of capture does not see the two kinds of capture"),
    (r"^src/capture/windowlist/",
     lambda name, quoted: name.startswith("capture/device/") and name != "capture/device/DisplayNaming.h",
     "windowlist sees of device only DisplayNaming.h"),
    (r"^src/capture/device/", lambda name, quoted: name.startswith("capture/windowlist/"),
     "device does not see windowlist"),
    (r"^src/render/[^/]+$", lambda name, quoted: re.match(r"render/(opengl|metal)/", name),
     "the shared part of render does not see the backends"),
    (r"^src/render/opengl/", lambda name, quoted: name.startswith("render/metal/"), "backends do not see each other"),
    (r"^src/render/metal/", lambda name, quoted: name.startswith("render/opengl/"), "backends do not see each other"),
    (r"^src/(?!catalogue/)", lambda name, quoted: name.startswith("catalogue/"),
     "what is published does not know the catalogue"),
    (r"^src/catalogue/", lambda name, quoted: quoted and not name.startswith("catalogue/"),
     "the catalogue sees only what it publishes, the public headers"),
    (r"^src/(log|qelkit)/", lambda name, quoted: re.match(r"(capture|render)/", name),
     "the log and the companion framework's part see neither capture nor render"),
    (r"^src/platform/linux/(?!LinuxPlatform\.cpp)[^/]+$", lambda name, quoted: True,
     "only LinuxPlatform.cpp lies outside the folders of the Linux layer"),
    (r"^src/platform/", lambda name, quoted: re.match(r"(capture|render|log|qelkit)/", name),
     "the platform layer does not see the library above it"),
    (r"^src/platform/",
     lambda name, quoted: re.match(r"(QelUtilVideo|QelKit)/", name) and not name.startswith("QelUtilVideo/platform/"),
     "the platform layer sees of the public headers only <QelUtilVideo/platform/…>"),
    (r"^src/platform/linux/(?P<part>[^/]+)/",
     None, "parts of the Linux layer share only core"),
    (r"^src/platform/linux/x11/[^/]+$", lambda name, quoted: name.startswith("platform/linux/x11/windowserver/"),
     "the window server stands on the rest of x11"),
    (r"^(apps|examples)/",
     lambda name, quoted: re.match(r"(platform|capture|render|log|qelkit|catalogue)/", name) or "../" in name,
     "programs see only include/"),
    (r"^apps/",
     lambda name, quoted: SYSTEM_LIBRARY.match(name) and not re.match(r"(CLI|nlohmann)/", name),
     "qelvideo stands on the library alone"),
    (r"^tests/public/", lambda name, quoted: re.match(r"(platform|capture|render|log|qelkit|catalogue)/|support/simulated/", name),
     "these tests see only include/"),
]


def crosses_linux_parts(path, name):
    """One folder of src/platform/linux includes another one than core."""
    own = path.split("/")[3]
    match = re.match(r"platform/linux/([^/]+)/", name)
    return bool(match) and match.group(1) not in (own, "core")


def findings(root):
    for folder in ("include", "src", "apps", "examples", "tests/public"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix not in (".h", ".cpp"):
                continue
            path = file.relative_to(root).as_posix()
            text = file.read_text(encoding="utf-8")
            for match in INCLUDE.finditer(text):
                name = match.group(2) or match.group(3)
                quoted = match.group(3) is not None
                line = text.count("\n", 0, match.start(1)) + 1
                if quoted and path.startswith("src/") and not (root / "src" / name).exists():
                    yield f"{path}:{line}: {match.group(1)}: own headers are named from src/ on"
                for files, forbidden, why in RULES:
                    if not re.match(files, path):
                        continue
                    if forbidden(name, quoted) if forbidden else crosses_linux_parts(path, name):
                        yield f"{path}:{line}: {match.group(1)}: {why}"


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    found = list(findings(root))
    for finding in found:
        print(finding)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
