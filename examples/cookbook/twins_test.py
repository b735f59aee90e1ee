#!/usr/bin/env python3
"""twins_test.py PROGRAM RECIPE.py: the recipe in Python says what the one in C says, and makes the same picture."""
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True


def main():
    program, script = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:])
    name = pathlib.Path(script).stem
    with tempfile.TemporaryDirectory() as folder:
        made = []
        for i, command in enumerate(([program], [sys.executable, "-B", "-W", "error", script])):
            place = pathlib.Path(folder) / str(i)
            place.mkdir()
            done = subprocess.run(command, cwd=place, capture_output=True, text=True)
            if done.returncode:
                sys.exit(f"{command[-1]}\n{done.stdout}{done.stderr}")
            made.append((done.stdout, place / f"{name}.png"))
        (said, picture), (said_here, picture_here) = made
        if said != said_here:
            sys.exit(f"C says    {said}Python says {said_here}")
        sys.path.insert(0, str(pathlib.Path(script).parent))
        from picture import read
        a, b = read(picture), read(picture_here)
        if a.shape != b.shape or (a != b).any():
            sys.exit(f"the pictures differ: {a.shape}, {b.shape}, {(a != b).sum() if a.shape == b.shape else ''} bytes")
    print(f"{name}: {a.shape}, alike")


if __name__ == "__main__":
    main()
