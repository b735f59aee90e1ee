#!/usr/bin/env python3
"""A corpus, thousands of inputs of some hundred bytes, as one file:
    pack.py pack FOLDER FILE.pack
    pack.py unpack FILE.pack FOLDER
    pack.py choose CONTROL-FILE BYTES FILE.pack    of the inputs of a merge of clang's engine those that add most for
                                                   their length, so many bytes at most
Inputs follow each other, shortest first, each behind its length in two bytes, the low one first."""
import hashlib
import pathlib
import sys


def write(inputs, file):
    with file.open("wb") as out:
        for data in sorted(set(inputs), key=lambda data: (len(data), data)):
            out.write(len(data).to_bytes(2, "little") + data)
    print(len(set(inputs)), "inputs,", file.stat().st_size, "bytes")


def pack(folder, file):
    write([path.read_bytes() for path in pathlib.Path(folder).iterdir()], pathlib.Path(file))


def unpack(file, folder):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    data, at, count = pathlib.Path(file).read_bytes(), 0, 0
    while at < len(data):
        end = at + 2 + int.from_bytes(data[at:at + 2], "little")
        if end > len(data):
            sys.exit(f"{file} ends within an input")
        one = data[at + 2:end]
        (folder / hashlib.sha1(one).hexdigest()).write_bytes(one)
        at, count = end, count + 1
    print(count, "inputs")


# The engine goes from the shortest input to the longest and writes down what each of them reached first.
def choose(control, limit, file):
    lines = pathlib.Path(control).read_text().splitlines()
    count = int(lines[0])
    inputs, reached = [pathlib.Path(name).read_bytes() for name in lines[2:2 + count]], [0] * count
    for words in map(str.split, lines[2 + count:]):
        if words[0] == "FT":
            reached[int(words[1])] = len(words) - 2
    chosen, total, seen = [], 0, 0
    for i in sorted(range(count), key=lambda i: -reached[i] / (len(inputs[i]) + 2)):
        if reached[i] == 0 or total + len(inputs[i]) + 2 > int(limit):
            break
        chosen.append(inputs[i])
        total, seen = total + len(inputs[i]) + 2, seen + reached[i]
    print(f"{seen} of {sum(reached)} branches")
    write(chosen, pathlib.Path(file))


def main():
    actions = {"pack": (pack, 2), "unpack": (unpack, 2), "choose": (choose, 3)}
    action, arguments = actions.get(sys.argv[1] if len(sys.argv) > 1 else "", (None, 0))
    if action is None or len(sys.argv) != 2 + arguments:
        sys.exit(__doc__)
    action(*sys.argv[2:])


main()
