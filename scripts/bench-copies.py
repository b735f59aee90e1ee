#!/usr/bin/env python3
"""scripts/bench-copies.py [--rounds N] [FILTER]: both copies of the library, case by case, side by side.

FILTER is a regular expression over the names of the benchmark's cases. Each case runs in turns with either copy, a fifth
of a second each, N times (default 2); the best turn counts. Columns: megapixels a second of the base and of the wide copy,
the gain, and both against the yardsticks (bench/yardsticks.tsv). Behind the cases come geometric means, those of a quarter
of a thousand pixels (256x256, in the cache) apart from the large ones. Build before: cmake --preset bench; cmake --build
--preset bench.
"""
import argparse
import collections
import math
import os
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument('--rounds', type=int, default=2)
parser.add_argument('--build', default=root / 'build/bench', type=pathlib.Path)
parser.add_argument('filter', nargs='?', default='.')
options = parser.parse_args()

bench = options.build / 'bench/zori_bench'
name_of_file = 'libzoriq7-5.3.so.5'
copies = {'base': options.build / 'src' / name_of_file,
          'wide': options.build / 'src/glibc-hwcaps/x86-64-v3' / name_of_file}
for path in (bench, *copies.values()):
    if not path.exists():
        sys.exit(f'{path} is not there: build with the preset bench')


def measured(copy, case):
    """Megapixels a second and the ratio to the yardstick (None without one)."""
    exactly = '^' + re.sub(r'[.*+?()\[\]{}|^$\\]', r'\\\g<0>', case) + '/'  # behind the name come the iterations
    run = subprocess.run([bench, '--quick', exactly], capture_output=True, text=True,
                         env={**os.environ, 'LD_PRELOAD': str(copies[copy])})
    for line in run.stdout.splitlines():
        cells = [cell.strip() for cell in line.strip('| ').split('|')]
        if cells[0] == case and len(cells) > 3:
            return float(cells[1]), float(cells[3]) if cells[3] else None
    sys.exit(f'no result of {case} with the {copy} copy:\n{run.stdout}{run.stderr}')


listed = subprocess.run([bench, '--benchmark_list_tests', options.filter], capture_output=True, text=True, check=True)
cases = [re.sub(r'/iterations:.*', '', line) for line in listed.stdout.splitlines() if '/' in line]
print(f'| {"case":42} |     base |     wide |  gain | base vs peer | wide vs peer |')
print(f'|:{"-" * 43}|---------:|---------:|------:|-------------:|-------------:|')
logs = collections.defaultdict(lambda: collections.defaultdict(list))
for case in cases:
    best = {}
    for _ in range(options.rounds):
        for copy in copies:
            result = measured(copy, case)
            best[copy] = max(best.get(copy, result), result)
    gain = best['wide'][0] / best['base'][0]
    peers = [best[copy][1] for copy in copies]
    print(f'| {case:42} | {best["base"][0]:8.0f} | {best["wide"][0]:8.0f} | {gain:5.2f} |'
          + ''.join(f' {peer:12.2f} |' if peer else f' {"":12} |' for peer in peers), flush=True)
    family = logs[case.split('/')[0] + (' in the cache' if re.search(r'\b256$', case) else '')]
    family['gain'].append(math.log(gain))
    for copy, peer in zip(copies, peers):
        if peer:
            family[copy].append(math.log(peer))

print(f'\n| {"geometric means":42} |  gain | base vs peer | wide vs peer |')
print(f'|:{"-" * 43}|------:|-------------:|-------------:|')
for name, family in sorted(logs.items()):
    cells = [f'{math.exp(sum(x) / len(x)):.2f}' if x else '' for x in (family[k] for k in ('gain', 'base', 'wide'))]
    print(f'| {name:42} | {cells[0]:>5} | {cells[1]:>12} | {cells[2]:>12} |')
