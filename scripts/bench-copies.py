#!/usr/bin/env python3
"""scripts/bench-copies.py [--rounds N] [--threads] [--update-docs] [FILTER]: both copies of the library side by side.

FILTER is a regular expression over the names of the benchmark's cases. The cases of a family run in turns with either
copy, a fifth of a second each, N times (default 2); the best turn counts. Columns: megapixels a second of the base and of
the wide copy, the gain, and both against the yardsticks (bench/yardsticks.tsv). Behind the cases come geometric means a
family, those of small images (in the cache) apart from the large ones; with --threads also the gain of all threads over
one. --update-docs puts these means, and the cases that fall short of their yardstick, into docs/performance.md.
Build before: cmake --preset bench; cmake --build --preset bench.
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
parser.add_argument('--threads', action='store_true')
parser.add_argument('--update-docs', action='store_true')
parser.add_argument('filter', nargs='?', default='.')
options = parser.parse_args()

bench = options.build / 'bench/zori_bench'
name_of_file = 'libzoriq7-5.3.so.5'
copies = {'base': options.build / 'src' / name_of_file,
          'wide': options.build / 'src/glibc-hwcaps/x86-64-v3' / name_of_file}
for path in (bench, *copies.values()):
    if not path.exists():
        sys.exit(f'{path} is not there: build with the preset bench')

columns = ('Mpixel/s', 'copies', 'vs peer', 'of limit', 'in cache', 'vs naive', 'threads')
machine = ''


def measured(copy, family):
    """What the benchmark's table tells of the family's cases: numbers by column, by case."""
    global machine
    flags = ['--quick'] + ['--threads'] * options.threads
    exactly = '^' + re.sub(r'[.*+?()\[\]{}|^$\\]', r'\\\g<0>', family) + '( |/)'  # behind the name come the iterations
    run = subprocess.run([bench, *flags, exactly], capture_output=True, text=True,
                         env={**os.environ, 'LD_PRELOAD': str(copies[copy])})
    table = {}
    for line in run.stdout.splitlines():
        if line.startswith('Measured on'):
            machine = line
        if line.startswith('Geometric means'):
            break
        cells = [cell.strip() for cell in line.split('|')[1:-1]]
        if len(cells) > len(columns) and cells[0].startswith(family):
            table[cells[0]] = {column: float(cell) for column, cell in zip(columns, cells[1:]) if cell}
    if not table:
        sys.exit(f'no result of {family} with the {copy} copy:\n{run.stdout}{run.stderr}')
    return table


def mean(numbers):
    numbers = [x for x in numbers if x]
    return f'{math.exp(sum(map(math.log, numbers)) / len(numbers)):.2f}' if numbers else ''


def table_of(header, rows):
    widths = [max(len(str(row[i])) for row in [header, *rows]) for i in range(len(header))]
    lines = ['| ' + ' | '.join(str(c).ljust(w) if i == 0 else str(c).rjust(w)
                               for i, (c, w) in enumerate(zip(row, widths))) + ' |' for row in [header, *rows]]
    lines.insert(1, '|' + '|'.join((':' + '-' * (w + 1)) if i == 0 else ('-' * (w + 1) + ':')
                                   for i, w in enumerate(widths)) + '|')
    return '\n'.join(lines)


listed = subprocess.run([bench, '--benchmark_list_tests', options.filter], capture_output=True, text=True, check=True)
cases = [re.sub(r'/iterations:.*', '', line) for line in listed.stdout.splitlines() if '/' in line]
print(f'| {"case":42} |     base |     wide |  gain | base vs peer | wide vs peer |')
print(f'|:{"-" * 43}|---------:|---------:|------:|-------------:|-------------:|')
results = {}  # by case and copy
grouped = collections.defaultdict(list)
for case in cases:
    grouped[case.split(' ')[0]].append(case)
for family, of_family in grouped.items():
    for _ in range(options.rounds):
        for copy in copies:
            for case, numbers in measured(copy, family).items():
                if case not in of_family:
                    continue
                best = results.setdefault(case, {}).setdefault(copy, {})
                for column, number in numbers.items():
                    best[column] = (min if column == 'copies' else max)(best.get(column, number), number)
    for case in of_family:
        base, wide = results[case]['base'], results[case]['wide']
        print(f'| {case:42} | {base["Mpixel/s"]:8.0f} | {wide["Mpixel/s"]:8.0f} | {wide["Mpixel/s"] / base["Mpixel/s"]:5.2f} |'
              + ''.join(f' {x["vs peer"]:12.2f} |' if 'vs peer' in x else f' {"":12} |' for x in (base, wide)), flush=True)


def is_small(case):
    return re.search(r'\b(\d+x)?(256|240|64|128)$', case) is not None


def gain(case):
    return results[case]['wide']['Mpixel/s'] / results[case]['base']['Mpixel/s']


def of(copy, column, chosen):
    return mean([results[case][copy].get(column) for case in chosen])


families = collections.defaultdict(list)
for case in results:
    families[case.split(' ')[0]].append(case)
    families[case.split('/')[0] + ', all'].append(case)
    families['everything'].append(case)
header = ['family', 'wide : base', 'in cache', 'of limit', 'in cache', 'base vs peer', 'wide vs peer', 'in cache: base', 'wide']
header += ['threads'] * options.threads
rows = []
for family, chosen in families.items():
    large, small = [c for c in chosen if not is_small(c)], [c for c in chosen if is_small(c)]
    row = [family, mean([gain(c) for c in large]), mean([gain(c) for c in small]), of('wide', 'of limit', large),
           of('wide', 'in cache', small), of('base', 'vs peer', large), of('wide', 'vs peer', large),
           of('base', 'vs peer', small), of('wide', 'vs peer', small)]
    rows.append(row + [of('wide', 'threads', large)] * options.threads)
rows.sort(key=lambda row: (row[0] == 'everything', row[0]))
means = table_of(header, rows)
short = [[case, f'{numbers["wide"]["vs peer"]:.2f}', f'{numbers["base"].get("vs peer", 0):.2f}',
          f'{numbers["wide"].get("of limit", 0):.2f}' if 'of limit' in numbers['wide'] else '',
          f'{numbers["wide"]["in cache"]:.2f}' if 'in cache' in numbers['wide'] else '']
         for case, numbers in results.items() if numbers['wide'].get('vs peer', 1) < 0.95]
below = table_of(['wide copy below 0.95', 'wide vs peer', 'base', 'of limit', 'in cache'], short) if short else ''
print(f'\n{machine}\n\nGeometric means:\n\n{means}\n\n{below}')

if options.update_docs:
    page = root / 'docs/performance.md'
    text = page.read_text()
    marker = '<!-- output of scripts/bench-copies.py -->\n'
    head = text[:text.index(marker) + len(marker)]
    page.write_text(f'{head}\n{machine}\n\n{means}\n\n{below}\n'.rstrip() + '\n')
