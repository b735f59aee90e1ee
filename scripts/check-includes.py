#!/usr/bin/env python3
"""Includes point downward: include < frame < rowkernels < walk < the subsystems.

A subsystem sees the floors below and itself; of another subsystem only the public header and the engines that it lends
out, and only where cmake/subsystems.cmake says that it needs that one.   check-includes.py [ROOT]
"""
import pathlib
import re
import sys

FLOORS = {'zori': 0, 'frame': 1, 'rowkernels': 2, 'walk': 3}
SUBSYSTEM_FLOOR = 4
COMMON_HEADERS = {'types', 'core', 'version'}
ENGINES = {'spectral/lane_plan.h', 'spectral/lane_transform.h'}

root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent)
cmake = (root / 'cmake/subsystems.cmake').read_text()
subsystems = re.search(r'ZORI_ALL_SUBSYSTEMS ([^)]*)\)', cmake).group(1).split()
needs = {name: set() for name in subsystems}
for name, needed in re.findall(r'ZORI_NEEDED_BY_(\w+) ([^)]*)\)', cmake):
    needs[name] = set(needed.split())


def fault(room, included_room, header):
    """What is wrong with a file of one room including a header of another, or None."""
    if included_room == 'zori':
        owner = pathlib.PurePath(header).stem
        if owner in COMMON_HEADERS or owner == room:
            return None
        if owner not in needs.get(room, ()):
            return f'cmake/subsystems.cmake does not say that {room} needs {owner}'
        return None
    if included_room == room or (header in ENGINES and included_room in needs.get(room, ())):
        return None
    floor, included = (FLOORS.get(name, SUBSYSTEM_FLOOR) for name in (room, included_room))
    if included >= floor:
        return f'{included_room} is not below {room}'
    return None


faults = files = 0
for path in sorted((root / 'src').rglob('*')):
    if path.suffix not in ('.h', '.cpp'):
        continue
    files += 1
    room = path.relative_to(root / 'src').parts[0]
    if room not in FLOORS and room not in subsystems:
        print(f'{path}: {room} is no room of the house')
        faults += 1
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = re.match(r'\s*#\s*include "([^"]+)"', line)
        if not match:
            continue
        header = match.group(1)
        beside = (path.parent / header).exists()
        included_room = room if beside else header.split('/')[0]
        wrong = fault(room, included_room, header)
        if wrong is None and not beside and not any((root / d / header).exists() for d in ('src', 'include')):
            wrong = 'there is no such file'
        if wrong:
            print(f'{path.relative_to(root)}:{number}: "{header}": {wrong}')
            faults += 1
print(f'{files} files, {faults} faults')
sys.exit(1 if faults or files == 0 else 0)
