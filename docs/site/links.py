"""Looks at a site as it lies in its folder: every link leads to a file that is there, every anchor to a place in it,
and nothing is fetched from elsewhere."""
import pathlib
import urllib.parse
from html.parser import HTMLParser


class Page(HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.links, self.needed, self.anchors, self.problems = [], [], set(), []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        known = dict(attrs)
        if known.get("id"):
            if known["id"] in self.anchors:
                self.problems.append(f"two places have the name #{known['id']}")
            self.anchors.add(known["id"])
        if tag == "a" and "href" in known:
            self.links.append(known["href"] or "")
        if tag in ("link", "img", "script", "iframe", "source", "video"):
            self.needed += [known[name] for name in ("href", "src") if known.get(name)]


def is_elsewhere(link):
    return urllib.parse.urlsplit(link).scheme != "" or link.startswith("//")


def target_of(folder, name, link):
    """The file that a link of the page `name` leads to."""
    path = urllib.parse.unquote(link.partition("#")[0])
    return (folder / name).parent.joinpath(path).resolve() if path else folder / name


def link_problem(folder, name, link, pages):
    """What is wrong with a link of the page `name`; empty when nothing is."""
    target, anchor = target_of(folder, name, link), urllib.parse.unquote(link.partition("#")[2])
    if not target.is_file() or not target.is_relative_to(folder):
        return f"{name}: the link '{link}' leads to nothing"
    page = pages.get(target)
    if anchor and (page is None or anchor not in page.anchors):
        return f"{name}: the link '{link}' leads to no place in {target.relative_to(folder)}"
    return ""


def problems(folder):
    folder = pathlib.Path(folder).resolve()
    pages = {path: Page(path.read_text(encoding="utf-8")) for path in sorted(folder.glob("**/*.html"))}
    first = folder / "index.html"
    if first not in pages:
        yield f"there is no index.html in {folder}"
    reached = {first}
    for path, page in pages.items():
        name = path.relative_to(folder).as_posix()
        for problem in page.problems:
            yield f"{name}: {problem}"
        for link in page.needed:
            problem = f"{name} needs '{link}' from elsewhere" if is_elsewhere(link) else link_problem(
                folder, name, link, pages)
            if problem:
                yield problem
        for link in page.links:
            if is_elsewhere(link):
                continue
            if link.partition("#")[0]:
                reached.add(target_of(folder, name, link))
            problem = link_problem(folder, name, link, pages)
            if problem:
                yield problem
    for path in pages.keys() - reached:
        yield f"no page leads to {path.relative_to(folder).as_posix()}"
