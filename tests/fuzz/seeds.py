#!/usr/bin/env python3
"""Writes first inputs for the fuzz targets: orderly ones, and random scripts of several lengths.

    seeds.py <folder>    writes <folder>/<target>/<name>
"""
import io
import pathlib
import random
import sys
import zipfile


def archive(name, content, method):
    file = io.BytesIO()
    with zipfile.ZipFile(file, "w", method) as archive_file:
        member = zipfile.ZipInfo(name)
        member.compress_type = method
        archive_file.writestr(member, content)
    return file.getvalue()


def archives():
    xml = b"<?xml version='1.0'?><RegisterDescription>" + b"<a/>" * 200 + b"</RegisterDescription>"
    deflated = archive("a.xml", xml, zipfile.ZIP_DEFLATED)
    yield "deflated", deflated
    yield "stored", archive("a.xml", xml, zipfile.ZIP_STORED)
    yield "empty_member", archive("a.xml", b"", zipfile.ZIP_STORED)
    yield "nested", archive("a.zip", deflated, zipfile.ZIP_STORED)
    yield "many_zeros", archive("a.xml", bytes(1 << 20), zipfile.ZIP_DEFLATED)
    yield "no_member", b"PK\x05\x06" + bytes(18)
    yield "cut", deflated[:-30]


def scripts(generator):
    for length in (16, 64, 128, 256, 400, 600):
        for number in range(4):
            yield f"random_{length}_{number}", generator.randbytes(length)


def main():
    folder = pathlib.Path(sys.argv[1])
    generator = random.Random(4711)
    targets = {name: scripts(generator) for name in
               ("descriptors", "acknowledges", "bootstrap", "stream", "api")}
    targets["unzip"] = archives()
    for target, inputs in targets.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, content in inputs:
            (folder / target / name).write_bytes(content)


main()
