#!/usr/bin/env python3
"""Writes the documentation as a site: a page a family from the catalogue, the guides from docs/*.md, a search index.

  documentation_site.py FOLDER [--pictures FOLDER]

Pictures are what scripts/docs.sh left there: stages of the tour (`tour --pictures FOLDER`), its sheets (tour-data.png...),
and in the folder cookbook what the recipes draw.

The pages need neither network nor server. cmark-gfm brings Markdown to HTML.
"""
import argparse
import fnmatch
import html
import json
import pathlib
import re
import shutil
import subprocess
import sys

import catalogue
from catalogue import ROOT, CatalogueError
from documentation import fact_lines, name_parts, prototype, read_title, status_list

SOURCES = ROOT / "docs/site"  # style, search, plain words
RECIPES = ROOT / "examples/cookbook"
NO_PAGE = {"functions"}       # of docs/: the site has its own index
C_NUMBERS = {"nan": "NAN", "inf": "INFINITY", "-inf": "-INFINITY", "null": "NULL"}
escape = html.escape


def slug(text):
    return re.sub(r"[^a-z0-9]+", "-", text.lower()).strip("-")


def prose(text):
    """Text of the catalogue: marks up what is code."""
    return re.sub(r"\b(zori[A-Z]\w*|Zor[A-Z]\w*|ZORI_\w+)\b", r"<code>\1</code>", escape(text))


def paragraphs(family):
    """The family's text: paragraphs, lists, and indented lines as they stand."""
    out = []
    for lines in family.paragraphs:
        kind, block = None, []

        def close():
            if kind == "pre":
                out.append("<pre>" + escape("\n".join(block)) + "</pre>")
            elif kind == "ul":
                out.append("<ul>" + "".join(f"<li>{prose(item)}</li>" for item in block) + "</ul>")
            elif kind:
                out.append(f"<p>{prose(' '.join(block))}</p>")
        for line in lines:
            now = "pre" if line.startswith(" ") else "ul" if line.startswith("- ") else "p"
            if kind == "ul" and now == "p":
                block[-1] += " " + line
                continue
            if now != kind:
                close()
                kind, block = now, []
            block.append(line.removeprefix("- ") if now == "ul" else line)
        close()
    return "\n".join(out)


def matrix(family):
    """Which types exist in which layouts: a table whose cells link to the prototypes."""
    rows, columns, cells = [], [], {}
    for f in family.functions:
        operation, types, layouts, suffix = name_parts(f.name)
        row, column = (operation, types), f"{layouts} {suffix}".strip()
        rows += [row] * (row not in rows)
        columns += [column] * (column not in columns)
        cells[row, column] = f.name
    if len(family.functions) < 3:
        return ""
    head = "".join(f"<th>{escape(c) or 'plain'}</th>" for c in columns)
    several = len({operation for operation, _ in rows}) > 1
    body = "".join(
        f"<tr><th>{escape(f'zori{o} {types}' if several or not types else types)}</th>" + "".join(
            f'<td><a href="#{cells[(o, types), c]}" title="{cells[(o, types), c]}">●</a></td>'
            if ((o, types), c) in cells else "<td></td>" for c in columns) + "</tr>" for o, types in rows)
    return f'<div class="wide"><table class="matrix"><tr><th></th>{head}</tr>{body}</table></div>'


def margin_words(function):
    """What is read beyond the region."""
    words = []
    for p in function.parameters:
        e = p.memory.extent if p.role == "image" and p.memory else None
        sides = [(side, f.text) for side, f in zip(("left", "above", "right", "below"),
                 (e.left, e.top, e.right, e.bottom)) if f] if e else []
        if sides:
            words.append(f"{p.name}: " + ", ".join(f"{escape(text)} {side}" for side, text in sides))
    return "; ".join(words)


def value_text(function, p):
    """The example's value of an argument, as C."""
    numbers = [C_NUMBERS.get(n, n) for n in function.example.get(p.name) or function.example.get(p.item) or []]
    base = p.declaration.split()[0]
    if p.role in ("region", "size") and not numbers:
        return "size"
    if not numbers:
        return "0" if p.role == "scale" else None
    if p.memory and p.role not in ("value",) and "*" in p.declaration:
        return None
    if p.count > 1 and base.startswith("Zor"):
        return f"({base}){{{', '.join(numbers)}}}"
    if p.memory:
        return f"({base.replace('const', '').strip() or p.declaration.split()[1]}[]){{{', '.join(numbers)}}}"
    return numbers[0]


def example(function):
    """A call of two lines."""
    arguments = []
    for p in function.parameters:
        text = value_text(function, p)
        if text is None:
            name = p.name
            by_value = not p.memory and p.role not in ("record", "buffer", "step")
            outs = p.role == "out" and "[" not in p.declaration
            text = "1" if by_value else f"&{name[1].lower() + name[2:]}" if outs and name.startswith("p") else name
        arguments.append(text)
    lines = ["ZorImgSize size = {640, 480};"] if "size" in arguments else []
    result = "ZorStatus status = " if function.family.returns == "ZorStatus" else ""
    return "\n".join(lines + [f"{result}{function.name}({', '.join(arguments)});"])


def exactness(function):
    """Which class of exactness a function belongs to."""
    if function.team == "contract":
        return "last places depend on the size of the team"
    floating = any("f" in p.memory.element for p in function.parameters if p.role == "image" and p.memory)
    if not floating:
        return "the same bytes in every build, for every number of threads"
    return "the same bits in every build, for every number of threads" + (
        ", under the caller's rounding" if function.rounding == "callers" else "")


class Site:
    def __init__(self, folder, pictures):
        self.folder, self.every = folder, catalogue.load()
        self.families = [f for f in self.every if f.built]
        self.pages, self.entries = {}, []
        self.subsystems = {}
        for family in self.families:
            self.subsystems.setdefault(family.subsystem, []).append(family)
        self.titles = {name: read_title(members[0].path) for name, members in self.subsystems.items()}
        self.pictures, self.picture_folder = self._read_pictures(pictures), pictures
        self.words = self._read_words()
        # in the order in which the README names them
        readme = (ROOT / "README.md").read_text().split("## Documentation")[1]
        order = dict.fromkeys(re.findall(r"\(docs/(\w[\w-]*)\.md\)", readme))
        self.guides = sorted((p for p in (ROOT / "docs").glob("*.md") if p.stem not in NO_PAGE),
                             key=lambda p: (list(order).index(p.stem) if p.stem in order else len(order), p.stem))

    def _read_pictures(self, folder):
        """Function name -> (file, title) of the stage of the tour that calls it."""
        if not folder or not (folder / "stages.json").exists():
            return {}
        found = {}
        for stage in json.loads((folder / "stages.json").read_text()):
            for call in stage["calls"]:
                found.setdefault("zori" + call, (folder / stage["file"], stage["title"], stage["note"]))
        return found

    def _read_words(self):
        """Plain words of a name: lines `pattern...: word, word` of words.txt."""
        lines = [line.split(":") for line in (SOURCES / "words.txt").read_text().splitlines() if not line.startswith("#")]
        named = {family.functions[0].name: [] for family in self.every}
        for patterns, words in lines:
            for pattern in patterns.split():
                meant = [family for family in self.every
                         if any(fnmatch.fnmatchcase(f.name, pattern) for f in family.functions)]
                if not meant:
                    raise CatalogueError(f"docs/site/words.txt: no function is called {pattern}")
                for family in meant:
                    named[family.functions[0].name].append(words.strip())
        return named

    def page(self, path, title, body, around=("", "")):
        """Puts the frame around a page; its links are relative to its own folder."""
        up = "../" * path.count("/")
        menu = "".join(f'<a href="{up}{name}.html">{name}</a>' for name in self.subsystems)
        before, after = around
        turn = (f'<nav class="turn">{f"<a rel=prev href={before[0]}>← {escape(before[1])}</a>" if before else "<i></i>"}'
                f'{f"<a rel=next href={after[0]}>{escape(after[1])} →</a>" if after else ""}</nav>') if before or after else ""
        self.pages[path] = (
            f'<!doctype html>\n<html lang="en"><head><meta charset="utf-8"><title>{escape(title)} - zori</title>'
            f'<meta name="viewport" content="width=device-width, initial-scale=1">'
            f'<link rel="stylesheet" href="{up}assets/style.css"></head>\n<body data-up="{up}">'
            f'<header><a class="home" href="{up}index.html">zori</a><input id="search" type="search" autocomplete="off" '
            f'placeholder="a name, or plain words: grey, gamma" aria-label="Search"><nav>{menu}'
            f'<a href="{up}guide/guide.html">guide</a></nav></header>\n<div id="hits" hidden></div>\n<main>\n{body}\n{turn}</main>\n'
            f'<script src="{up}assets/index.js"></script><script src="{up}assets/search.js"></script></body></html>\n')

    def family_path(self, family):
        return f"f/{family.functions[0].name}.html"

    def family_page(self, family, before, after):
        first = family.functions[0]
        picture = next((self.pictures[f.name] for f in family.functions if f.name in self.pictures), None)
        shown = ""
        if picture:
            file, title, note = picture
            shown = (f'<figure><img src="../pictures/{file.name}" alt="{escape(title)}" loading="lazy">'
                     f"<figcaption>{escape(title)}{': ' + escape(note) if note else ''}</figcaption></figure>")
            self.used_pictures.add(file)
        facts = [line.rstrip(".").split(": ", 1) for line in fact_lines(family)]
        margins = {}
        for f in family.functions:
            margins.setdefault(margin_words(f), f.name)
        margins.pop("", None)
        facts += [["Reads beyond the region", ("; ".join(list(margins)[:2]))]] if margins else []
        classes = list(dict.fromkeys(map(exactness, family.functions)))
        facts.append(["Exactness", "; ".join(classes)])
        rows = "".join(f"<tr><th>{escape(k)}</th><td>{prose(v) if k != 'Reads beyond the region' else v}</td></tr>"
                       for k, v in facts)
        prototypes = "".join(f'<pre class="prototype" id="{f.name}"><a href="#{f.name}">{escape(chr(10).join(prototype(f)))}'
                             f"</a></pre>" for f in family.functions)
        patterns = "".join(f"<li><code>{escape(p)}</code></li>" for p in family.patterns)
        body = (f'<p class="crumb"><a href="../{family.subsystem}.html">{escape(self.titles[family.subsystem])}</a> · '
                f"<code>#include &lt;zori/{family.subsystem}.h&gt;</code></p><h1>{escape(family.title)}</h1>"
                f'<ul class="patterns">{patterns}</ul>{shown}{paragraphs(family)}<h2>Calls</h2><table class="facts">{rows}</table>'
                f"<h2>Example</h2><pre>{escape(example(first))}</pre>"
                f"<h2>Forms</h2>{matrix(family)}{prototypes}")
        link = [(self.family_path(f).split("/")[1], f.title) if f else "" for f in (before, after)]
        self.page(self.family_path(family), family.title, body, link)
        self.entries.append({"p": self.family_path(family), "t": family.title, "s": family.subsystem,
                             "f": [f.name for f in family.functions], "w": " ".join(self.words[first.name])})

    def markdown(self, path):
        """A guide as HTML: links to other guides point to their pages, headings get anchors."""
        text = subprocess.run(["cmark-gfm", "-e", "table", "--unsafe", str(path)], check=True, capture_output=True,
                              text=True).stdout
        here = f"guide/{path.stem}.html"

        def heading(match):
            plain = html.unescape(re.sub(r"<[^>]*>", "", match[2]))
            if match[1] != "1":
                self.entries.append({"p": f"{here}#{slug(plain)}", "t": plain, "s": "guide", "f": [], "w": ""})
            return f'<h{match[1]} id="{slug(plain)}">{match[2]}</h{match[1]}>'

        def link(match):
            target, _, anchor = match[1].partition("#")
            if "://" in target or not target:
                return match[0]
            anchor = "#" + anchor if anchor else ""
            file = (path.parent / target).resolve()
            if file == ROOT / "docs/functions.md":
                return 'href="../index.html"'
            if file.parent == ROOT / "docs" and file.suffix == ".md":
                return f'href="{file.stem}.html{anchor}"'
            if file.parent == RECIPES and file.stem in self.recipes:
                return f'href="../cookbook/{file.stem}.html{"#python" if file.suffix == ".py" else ""}"'
            if file.is_dir() or not file.exists():
                raise CatalogueError(f"{path.relative_to(ROOT)}: no file {target}")
            self.copied.add(file)
            return f'href="../files/{file.relative_to(ROOT)}"'
        text = re.sub(r"<h([1-6])>(.*?)</h\1>", heading, text)
        text = re.sub(r'href="([^"]*)"', link, text)
        text = re.sub(r'src="pictures/([^"]*)"', r'src="../pictures/\1"', text)

        def named(match):  # `zoriResize` or a whole name links to its family
            name = match[1]
            family = next((f for f in self.families if any(g.name == name for g in f.functions)), None) or next(
                (f for f in self.families if any(name_parts(g.name)[0] == name.removeprefix("zori") for g in f.functions)),
                None)
            return f'<a href="../{self.family_path(family)}">{match[0]}</a>' if family else match[0]
        return re.sub(r"<code>(zori[A-Z]\w*)</code>", named, text)

    def found_picture(self, name, text):
        """A figure, where the pictures have this one."""
        file = self.picture_folder / name if self.picture_folder else None
        if not file or not file.exists():
            return ""
        self.used_pictures.add(file)
        return f'<figure><img src="{{up}}pictures/{file.name}" alt="{escape(text)}" loading="lazy"></figure>'

    def read_recipes(self):
        """Name -> (title, what it shows), as the table of the cookbook has them."""
        rows = re.findall(r"^\| \[(.*?)\]\(\.\./examples/cookbook/(\w+)\.c\) \| (.*?) \| \[", (ROOT / "docs/cookbook.md").read_text(), re.M)
        recipes = {name: (title, words) for title, name, words in rows}
        forgotten = {p.stem for p in RECIPES.glob("*.c")} - {"picture"} ^ recipes.keys()
        if forgotten:
            raise CatalogueError(f"docs/cookbook.md and examples/cookbook differ: {', '.join(sorted(forgotten))}")
        return recipes

    def linked_code(self, file):
        """A source with its calls of the library as links to their pages."""
        family_of = {f.name: family for family in self.families for f in family.functions}

        def linked(match):
            family = family_of.get(match[0])
            return f'<a href="../{self.family_path(family)}#{match[0]}">{match[0]}</a>' if family else match[0]
        return f"<pre>{re.sub(r'zori[A-Z][A-Za-z0-9_]*', linked, escape(file.read_text()))}</pre>"

    def recipe_page(self, name, before, after):
        title, words = self.recipes[name]
        words = words[:1].upper() + words[1:]
        body = (f'<p class="crumb"><a href="../guide/cookbook.html">Cookbook</a> · <a href="#c">C</a> · '
                f'<a href="#python">Python</a></p><h1>{escape(title)}</h1><p>{escape(words)}.</p>'
                + self.found_picture(f"cookbook/{name}.png", title).replace("{up}", "../")
                + f'<h2 id="c">In C</h2>{self.linked_code(RECIPES / f"{name}.c")}'
                + f'<h2 id="python">In Python</h2>{self.linked_code(RECIPES / f"{name}.py")}'
                + "<p>Both draw the same picture, which the tests see to. <code>picture</code> opens and saves it: ")
        for file in ("picture.h", "picture.c", "picture.py"):
            self.copied.add(RECIPES / file)
            body += f'<a href="../files/examples/cookbook/{file}">{file}</a> '
        link = [(f"{n}.html", self.recipes[n][0]) if n else "" for n in (before, after)]
        self.page(f"cookbook/{name}.html", title, body.strip() + "</p>", link)
        self.entries.append({"p": f"cookbook/{name}.html", "t": title, "s": "cookbook", "f": [], "w": words})

    def write(self):
        self.used_pictures, self.copied = set(), set()
        self.recipes = self.read_recipes()
        names = list(self.recipes)
        for i, name in enumerate(names):
            self.recipe_page(name, names[i - 1] if i else None, names[i + 1] if i + 1 < len(names) else None)
        for members in self.subsystems.values():
            for i, family in enumerate(members):
                self.family_page(family, members[i - 1] if i else None, members[i + 1] if i + 1 < len(members) else None)
        for path in self.guides:
            text = self.markdown(path)
            self.page(f"guide/{path.stem}.html", path.stem, text)
        for name, members in self.subsystems.items():
            guide = f'<p><a href="guide/{name}.html">Guide to this part</a></p>' if (ROOT / f"docs/{name}.md").exists() else ""
            rows = "".join(f'<tr><td><a href="{self.family_path(f)}">{escape(f.title)}</a></td><td>'
                           + " ".join(f"<code>{escape(p)}</code>" for p in f.patterns)
                           + f"</td><td>{len(f.functions)}</td></tr>" for f in members)
            sheet = self.found_picture(f"tour-{name}.png", self.titles[name]).replace("{up}", "")
            self.page(f"{name}.html", self.titles[name],
                      f'<h1>{escape(self.titles[name])}</h1>{guide}<table class="index">{rows}</table>{sheet}')
        statuses = "".join(f'<tr id="{n}"><td><code>{n}</code></td><td>{v}</td><td>{escape(t)}</td></tr>'
                           for n, v, t in status_list())
        self.page("statuses.html", "Status codes", f"<h1>Status codes</h1><table class=\"index\">{statuses}</table>")
        self.entries += [{"p": f"statuses.html#{n}", "t": f"{n} ({v}): {t}", "s": "status", "f": [], "w": ""}
                         for n, v, t in status_list()]
        self.index_page()
        self.save()

    def index_page(self):
        total = sum(len(f.functions) for f in self.families)
        cards = "".join(f'<a class="card" href="{name}.html"><b>{escape(self.titles[name])}</b>'
                        f"<span>{len(members)} families, {sum(len(f.functions) for f in members)} functions</span></a>"
                        for name, members in self.subsystems.items())
        guides = "".join(f'<li><a href="guide/{p.stem}.html">{escape(self.first_heading(p))}</a></li>' for p in self.guides)
        self.page("index.html", "Functions",
                  f"<h1>zori: image-processing primitives</h1><p>{total} functions in {len(self.families)} families. Type a "
                  f"name or plain words above (the key / goes there).</p><div class=\"cards\">{cards}</div><h2>Guides</h2>"
                  f'<ul class="guides">{guides}<li><a href="statuses.html">Status codes</a></li></ul>'
                  f'<figure><img src="pictures/tour.png" alt="What the tour shows" loading="lazy"><figcaption>What the tour '
                  f"shows, with the time of each call</figcaption></figure>")

    @staticmethod
    def first_heading(path):
        return path.read_text().splitlines()[0].lstrip("# ")

    def save(self):
        if self.folder.exists():
            shutil.rmtree(self.folder)
        (self.folder / "assets").mkdir(parents=True)
        (self.folder / "pictures").mkdir()
        for path, text in self.pages.items():
            (self.folder / path).parent.mkdir(exist_ok=True)
            (self.folder / path).write_text(text)
        (self.folder / "assets/index.js").write_text("const zoriIndex = " + json.dumps(self.entries, separators=(",", ":"),
                                                                                      ensure_ascii=False) + ";\n")
        for name in ("style.css", "search.js"):
            shutil.copy(SOURCES / name, self.folder / "assets")
        for file in [*self.used_pictures, *(ROOT / "docs/pictures").glob("*")]:
            shutil.copy(file, self.folder / "pictures")
        for file in self.copied:
            target = self.folder / "files" / file.relative_to(ROOT)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, target)

    def check(self):
        """Every link of every page leads to a page and an anchor that exist."""
        anchors = {path: set(re.findall(r'\bid="([^"]*)"', text)) for path, text in self.pages.items()}
        dead, count = [], 0
        for path, text in self.pages.items():
            folder = self.folder / path
            for target in re.findall(r'\b(?:href|src)="?([^"\s>]+)', text):
                target = html.unescape(target)
                if "://" in target:
                    continue
                count += 1
                file, _, anchor = target.partition("#")
                other = (folder.parent / file).resolve() if file else folder.resolve()
                page = str(other.relative_to(self.folder.resolve())) if other.is_relative_to(self.folder.resolve()) else None
                if not other.is_file() or anchor and page in anchors and anchor not in anchors[page]:
                    dead.append(f"{path}: {target}")
        names = {name for entry in self.entries for name in entry["f"]}
        missing = [f.name for family in self.families for f in family.functions if f.name not in names]
        return count, dead + [f"no search hit for {name}" for name in missing]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--pictures", type=pathlib.Path)
    options = parser.parse_args()
    site = Site(options.folder, options.pictures)
    site.write()
    count, faults = site.check()
    print("\n".join(faults), end="\n" if faults else "")
    print(f"{len(site.pages)} pages, {count} links, {len(faults)} faults, {len(site.used_pictures)} pictures in {options.folder}")
    return 1 if faults else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except CatalogueError as fault:
        sys.exit(str(fault))
