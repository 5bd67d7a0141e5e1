#!/usr/bin/env python3
"""Makes the site from the Markdown of this tree and from Doxygen's XML, and looks at every link of it."""
import argparse
import html
import json
import pathlib
import posixpath
import re
import shutil
import sys

sys.dont_write_bytecode = True

import charts
import doxygen
import layout
import links
import prose
import reference
import samples
import treefiles

# The chapters of docs/guide.md in the order of what people want; others follow as they come.
GUIDE = [
    ("transfers-headers-and-errors", "One transfer, progress, errors"),
    ("whole-files", "Whole files"),
    ("safe-by-one-call", "Safe by one call; errors to show"),
    ("again", "Try again"),
    ("many-transfers", "Background and windows"),
    ("s3", "S3"),
    ("ftp", "FTP"),
    ("mail", "Mail"),
    ("proxies", "Proxies"),
    ("http-helpers", "URLs, dates, ranges"),
    ("logging", "The log"),
    ("background-transfers", "The older thread"),
]
GROUPS = [
    ("Start", ["README.md", "docs/choosing.md", "docs/cookbook.md", "docs/examples.md"]),
    ("Guide", ["docs/guide.md"]),
    ("Know", ["docs/text.md", "docs/ownership.md", "docs/architecture.md", "docs/ftp-servers.md",
              "docs/known-limits.md"]),
    ("Figures", ["docs/performance.md", "docs/reliability.md"]),
    ("Project", ["CHANGELOG.md", "CONTRIBUTING.md"]),
]
LABELS = {"README.md": "Get it, build it", "docs/choosing.md": "Perform or pool",
          "docs/guide.md": "Objects, text, errors", "docs/text.md": "Text, paths, escaping",
          "docs/ownership.md": "Who owns what", "CHANGELOG.md": "Changes",
          "CONTRIBUTING.md": "Work on it", "docs/reliability.md": "Reliability", "docs/performance.md": "Performance"}

# What the first page leads to: a task, a sentence, and where that is told.
TASKS = [
    ("A file, with progress", "It arrives whole or not at all, and goes on where it was broken off.",
     ["docs/guide.md#whole-files", "docs/cookbook.md#show-a-progress-bar", "docs/reliability.md"]),
    ("Errors to show", "A sentence for a person, a kind for the program, and no password in either.",
     ["docs/guide.md#safe-by-one-call", "docs/cookbook.md#tell-a-person-what-went-wrong"]),
    ("Windows and loops", "Hundreds at once, each cancelled at any moment; callbacks where the windows are.",
     ["docs/guide.md#many-transfers", "docs/choosing.md", "docs/cookbook.md#cancel-a-transfer"]),
    ("S3", "Objects of any size, lists, versions, links, in Amazon's stores and others.",
     ["docs/guide.md#s3", "docs/cookbook.md#store-a-file-in-s3"]),
    ("FTP and SFTP", "Stored, listed, moved, removed as trees; servers that prove who they are.",
     ["docs/guide.md#ftp", "docs/cookbook.md#store-a-file-over-sftp", "docs/ftp-servers.md"]),
    ("Mail", "Text, attachments, STARTTLS, and the server's own words when it refuses.",
     ["docs/guide.md#mail", "docs/cookbook.md#send-a-mail-with-an-attachment"]),
    ("Proxies", "Per scheme, with exceptions, HTTP and SOCKS.",
     ["docs/guide.md#proxies", "docs/cookbook.md#through-a-proxy"]),
    ("Helpers", "URLs, forms, dates, ranges, cookies, digests.",
     ["docs/guide.md#http-helpers", "docs/cookbook.md", "docs/text.md"]),
]
LANDING_SAMPLE = "docs/cookbook/downloadFile.cpp"
DIFFERENT = "what-makes-it-different"  # the chapter of the README that the first page shows


class Builder:
    def __init__(self, top, xml):
        self.top = top
        self.problems = []
        self.files = set(treefiles.files_of(top))
        version = re.search(r"\bproject\([^)]*?VERSION (\d[\d.]*)", self.read("CMakeLists.txt"))[1]
        self.site = layout.Site(version)
        self.model = doxygen.Model(xml, doxygen.public_headers(top))
        self.documents = {name: prose.Document(name, self.read(name)) for name in self._names()}
        self.sources = {}  # path -> url of its page
        self.copied = {}  # path -> url
        self.places = self._places()
        self.reference = reference.Reference(self.model, self._samples(), self._tests(), self.problems)
        self.renderer = prose.Renderer(self.resolve, self.reference.link_name, self.reference.named,
                                       self._title_of)

    def read(self, name):
        return (self.top / name).read_text(encoding="utf-8")

    def _names(self):
        """The files of Markdown that are pages: those that are listed above, those of docs, and the decisions."""
        listed = [name for _, names in GROUPS for name in names]
        more = sorted(name for name in self.files if re.fullmatch(r"docs/(decisions/)?[^/]+\.md", name))
        return [name for name in dict.fromkeys(listed + more) if (self.top / name).is_file()]

    # --- where things are

    def _places(self):
        """(file, number of the chapter) -> url"""
        places = {}
        for name, document in self.documents.items():
            url = name.removeprefix("docs/").removesuffix(".md").lower() + ".html"
            for number, chapter in enumerate(document.chapters):
                alone = name == "docs/guide.md" and number > 0
                places[name, number] = f"guide/{chapter.anchor}.html" if alone else url
        return places

    def address(self, name, anchor):
        document = self.documents[name]
        if not anchor:
            return self.places[name, 0]
        if anchor not in document.anchors:
            return None
        number = document.anchors[anchor]
        url = self.places[name, number]
        alone = name == "docs/guide.md" and number > 0 and document.chapters[number].anchor == anchor
        return url if alone else f"{url}#{anchor}"

    def resolve(self, name, link, page):
        if links.is_elsewhere(link):
            return link
        path, _, anchor = link.partition("#")
        target = posixpath.normpath(posixpath.join(posixpath.dirname(name), path)) if path else name
        if target in self.documents:
            url = self.address(target, anchor)
            if not url:
                self.problems.append(f"{name}: {target} has no heading '#{anchor}'")
            return layout.relative(url, page) if url else None
        url = self._url_of_file(target)
        if url == "":
            self.problems.append(f"{name}: the link '{link}' leads to nothing in this tree")
        return layout.relative(url, page) if url else None

    def _title_of(self, name, link):
        document = self.documents.get(posixpath.normpath(posixpath.join(posixpath.dirname(name), link)))
        return document.title if document else link

    def _url_of_file(self, target):
        """The page of a file or folder of the tree; None when it has none, empty when it is not there."""
        if target in self.model.headers:
            stem = posixpath.basename(target).removesuffix(".h")
            for compound in self.model.compounds:
                if compound.file == target and compound.name == stem:
                    return self.reference.url_of(compound)
            return self.reference.header_url(target) if target in self.model.free else self._source(target)
        if target in self.files:
            return self._source(target) if re.search(r"\.(cpp|h|cmake|py|txt)$", target) else self._copy(target)
        if not any(file.startswith(target + "/") for file in self.files):
            return ""
        known = {"docs": "index.html", "docs/decisions": "decisions/index.html", "examples": "examples.html"}
        rooms = [room for room, _ in reference.ROOMS if (room + "/").startswith(target + "/")]
        return known.get(target) or (f"reference/index.html#{reference.anchor_of(rooms[0])}" if rooms else None)

    def _source(self, path):
        return self.sources.setdefault(path, f"source/{path}.html")

    def _copy(self, path):
        if not re.search(r"\.(png|svg|jpg|webp)$", path):
            return None
        return self.copied.setdefault(path, f"files/{path}")

    def _samples(self):
        """The files that are compiled and that a page shows, and the example programs."""
        found = []
        for name, document in self.documents.items():
            for link, number in document.samples:
                path = posixpath.normpath(posixpath.join(posixpath.dirname(name), link))
                if re.fullmatch(r"docs/\w+/\w+\.cpp", path) and path in self.files:
                    chapter = document.chapters[number]
                    label = "Guide" if name == "docs/guide.md" else document.title
                    title = f"{label}: {chapter.title}" if chapter.title else label
                    found.append(samples.Sample(path, self.read(path), title, self.address(name, chapter.anchor)))
        for path in sorted(self.files):
            if re.fullmatch(r"examples/\w+\.(cpp|h)", path):
                found.append(samples.Sample(path, self.read(path), path, self._source(path)))
        return found

    def _tests(self):
        return [test for path in sorted(self.files) if re.fullmatch(r"tests/.*Test\.cpp", path)
                for test in samples.tests_of(path, self.read(path))]

    # --- pages

    def build(self):
        for name in self.documents:
            self._document(name)
        self._decisions()
        self.reference.write(self.site)
        for path in list(self.sources):
            self._source_page(path)
        self._landing()
        self._groups()
        self._find()

    def _document(self, name):
        document = self.documents[name]
        first = document.chapters[0].tokens
        if name != "docs/guide.md":
            first = [token for chapter in document.chapters for token in chapter.tokens]
        self._page(name, document.title, first, self.places[name, 0], 2)
        if name == "docs/examples.md":
            self._list_examples(self.places[name, 0])
        for number, chapter in enumerate(document.chapters):
            if name == "docs/guide.md" and number:
                self._page(name, chapter.title, chapter.tokens, self.places[name, number], 1)

    def _list_examples(self, url):
        title, body = self.site.pages[url]
        items = [f'<li><a href="{layout.relative(address, url)}">{posixpath.basename(path)}</a></li>'
                 for path, address in sorted(self.sources.items()) if path.startswith("examples/")]
        self.site.pages[url] = (title, f'{body}<h2 id="all-files">All their files</h2>\n<ul>{"".join(items)}</ul>\n')

    def _page(self, name, title, tokens, url, title_level):
        pictures = dict(charts.before_tables(name, tokens, self.problems))
        body = self.renderer.render(name, tokens, url, title_level)
        parts = re.split(r'(?=<div class="table")', body)
        for number, drawn in pictures.items():
            parts[number] += drawn
        self.site.add(url, title, "".join(parts))

    def _decisions(self):
        rows = []
        for name, document in self.documents.items():
            if name.startswith("docs/decisions/"):
                url = layout.relative(self.places[name, 0], "decisions/index.html")
                number = int(posixpath.basename(name)[:4])
                rows.append(f'<li value="{number}"><a href="{url}">{html.escape(document.title)}</a></li>\n')
        self.site.add("decisions/index.html", "Decisions", "<h1>Decisions</h1>\n<p>What could have been decided "
                      f"otherwise, and why it was not.</p>\n<ol>\n{''.join(rows)}</ol>\n")

    def _source_page(self, path):
        url = self.sources[path]
        names = (lambda word: self.reference.link_name(word, url)) if path.endswith((".cpp", ".h")) else None
        code = layout.code_block(self.read(path), "cpp" if names else "", names)
        self.site.add(url, path, f"<h1>{path}</h1>\n{code}")

    def _landing(self):
        url, name = "index.html", "README.md"
        document = self.documents[name]
        tokens = document.chapters[0].tokens
        until = next((at for at, token in enumerate(tokens) if token.type == "fence"), len(tokens))
        intro = self.renderer.render(name, tokens[3:until], url)
        chapters = [chapter for chapter in document.chapters if chapter.anchor == DIFFERENT]
        if not chapters:
            self.problems.append(f"README.md has no chapter '#{DIFFERENT}', which the first page shows")
        different = "".join(self.renderer.render(name, chapter.tokens[3:], url) for chapter in chapters)
        sample = layout.code_block(self.read(LANDING_SAMPLE), "cpp", lambda word: self.reference.link_name(word, url))
        self.site.add(url, "libnorla", f"""<div class="hero">
<div><h1>libnorla</h1>
{intro}<p class="ways"><a href="readme.html#use-it">Get it</a> <a href="guide.html">Guide</a>
<a href="cookbook.html">Cookbook</a> <a href="reference/index.html">Reference</a></p></div>
<div>{sample}</div>
</div>
<h2 id="tasks">What do you want to do?</h2>
<div class="cards">
{"".join(map(self._card, TASKS))}</div>
<h2 id="different">What makes it different</h2>
{different}""")

    def _card(self, task):
        title, sentence, targets = task
        items = []
        for target in targets:
            name, _, anchor = target.partition("#")
            address = self.resolve("", target, "index.html")
            document = self.documents.get(name)
            if address and document:
                text = document.chapters[document.anchors[anchor]].title if anchor else LABELS.get(name, document.title)
                items.append(f'<li><a href="{address}">{html.escape(text)}</a></li>')
        return f"<section><h3>{title}</h3><p>{sentence}</p><ul>{''.join(items)}</ul></section>\n"

    def _groups(self):
        for title, names in GROUPS:
            entries = []
            for name in names:
                if name in self.documents:
                    entries.append((LABELS.get(name, self.documents[name].title), self.places[name, 0]))
                if name == "docs/guide.md":
                    entries += self._guide_links()
            self.site.groups.append((title, entries))
        listed = {name for _, names in GROUPS for name in names}
        more = [(document.title, self.places[name, 0]) for name, document in self.documents.items()
                if name not in listed and not name.startswith("docs/decisions/")]
        if more:
            self.site.groups.append(("More", more))
        self.site.groups[-1][1].append(("Decisions", "decisions/index.html"))
        self.site.groups[0][1].insert(0, ("What it is for", "index.html"))
        self.site.groups[0][1].append(("Reference", "reference/index.html"))

    def _guide_links(self):
        document = self.documents["docs/guide.md"]
        titles = {chapter.anchor: chapter.title for chapter in document.chapters if chapter.anchor}
        for anchor, _ in GUIDE:
            if anchor not in titles:
                self.problems.append(f"docs/guide.md has no chapter '#{anchor}', which the site's order names")
        order = {**{anchor: label for anchor, label in GUIDE if anchor in titles},
                 **{anchor: title for anchor, title in titles.items() if anchor not in dict(GUIDE)}}
        return [(label, f"guide/{anchor}.html") for anchor, label in order.items()]

    def _find(self):
        entries = [[layout.plain(title), url] for url, (title, _) in self.site.pages.items()]
        for name, document in self.documents.items():
            entries += [[f"{document.title}: {chapter.title}", self.address(name, chapter.anchor)]
                        for chapter in document.chapters if chapter.anchor and name != "docs/guide.md"]
        entries += [[name, url] for name, url in self.reference.by_name.items() if "#" in url and "::" in name]
        self.entries = sorted({url: [text, url] for text, url in entries}.values(), key=lambda entry: len(entry[0]))
        self.site.add("find.html", "Find", """<h1>Find</h1>
<p><input type="search" id="words" autofocus aria-label="Words" placeholder="a class, a function, a task"></p>
<ul id="found"></ul>
<noscript><p>Without JavaScript: the <a href="reference/index.html">reference</a> lists all classes, the
<a href="cookbook.html">cookbook</a> all tasks.</p></noscript>
<script src="find.js"></script>
""")

    def write(self, folder):
        for url in self.site.pages:
            path = folder / url
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(self.site.render(url), encoding="utf-8")
        own = self.top / "docs/site"
        shutil.copy(own / "style.css", folder)
        script = (own / "find.js").read_text(encoding="utf-8")
        (folder / "find.js").write_text(f"const entries = {json.dumps(self.entries)};\n{script}", encoding="utf-8")
        for path, url in self.copied.items():
            (folder / url).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(self.top / path, folder / url)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--xml", required=True, type=pathlib.Path, help="the folder with Doxygen's XML")
    parser.add_argument("--output", required=True, type=pathlib.Path, help="the folder for the site, not there yet")
    options = parser.parse_args()
    builder = Builder(pathlib.Path(__file__).resolve().parents[2], options.xml)
    builder.build()
    builder.write(options.output)
    problems = builder.problems + list(links.problems(options.output))
    for problem in dict.fromkeys(problems):
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
