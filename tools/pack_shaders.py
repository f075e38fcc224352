#!/usr/bin/env python3
"""Packs compiled shaders into one library file.

usage: pack_shaders.py OUTPUT SHADER.spv ...

A function's name is that of its file up to the first dot. The format is described where it is read.
"""
import pathlib
import sys

output, *files = map(pathlib.Path, sys.argv[1:])
library = b"QelUtilVideo shaders 1\n"
for file in files:
    code = file.read_bytes()
    library += f"{file.name.split('.')[0]} {len(code)}\n".encode() + code
output.write_bytes(library)
