"""What all pages of the site have in common: the frame around them, the way through them, and code in colours."""
import html
import posixpath
import re

from pygments import highlight
from pygments.formatters import HtmlFormatter
from pygments.lexers import BashLexer, CMakeLexer, CppLexer, TextLexer

LEXERS = {"cpp": CppLexer, "cmake": CMakeLexer, "sh": BashLexer, "bash": BashLexer}
FORMATTER = HtmlFormatter(nowrap=True)


def relative(target, page):
    """The address of `target` (a path in the site, perhaps with #anchor) as a page of the site writes it."""
    path, _, anchor = target.partition("#")
    if path == page and anchor:
        return "#" + anchor
    way = posixpath.relpath(path, posixpath.dirname(page) or ".")
    return way + ("#" + anchor if anchor else "")


def plain(markup):
    return html.unescape(re.sub(r"<[^>]+>", "", markup)).strip()


def code_block(text, language="", link_names=None):
    """A block of code; `link_names` makes a link of a name that the reference knows."""
    markup = highlight(text, LEXERS.get(language, TextLexer)(stripnl=False), FORMATTER)
    if link_names:
        markup = re.sub(r'<span class="(n|nc|nf)">(\w+)</span>',
                        lambda found: link_names(found[2]) or found[0], markup)
    return f'<pre tabindex="0"><code>{markup}</code></pre>\n'


class Site:
    """The pages as they come, and the groups of links that lead through them."""

    def __init__(self, version):
        self.version = version
        self.groups = []  # title, [(title, url)]
        self.pages = {}  # url -> (title, body)

    def add(self, url, title, body):
        assert url not in self.pages, url
        self.pages[url] = (title, body)

    def navigation(self, page):
        parts = []
        for title, links in self.groups:
            parts.append(f"<h2>{html.escape(title)}</h2>\n<ul>")
            for text, url in links:
                here = ' aria-current="page"' if url == page else ""
                parts.append(f'<li><a href="{relative(url, page)}"{here}>{html.escape(text)}</a></li>')
            parts.append("</ul>")
        return "\n".join(parts)

    def neighbours(self, page):
        """Links to the page before and behind this one in its group."""
        for _, links in self.groups:
            urls = [url for _, url in links]
            if page not in urls:
                continue
            at = urls.index(page)
            found = [(mark, links[other]) for mark, other in (("before", at - 1), ("behind", at + 1))
                     if 0 <= other < len(links) and "#" not in links[other][1]]
            items = [f'<a class="{mark}" href="{relative(url, page)}">{html.escape(text)}</a>'
                     for mark, (text, url) in found]
            return f'<nav class="neighbours" aria-label="Neighbours">{"".join(items)}</nav>\n' if items else ""
        return ""

    def render(self, url):
        title, body = self.pages[url]
        whole = "libnorla" if url == "index.html" else f"{plain(title)} · libnorla"
        kind = "landing" if url == "index.html" else "reference" if url.startswith("reference/") else "prose"
        return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{html.escape(whole)}</title>
<link rel="stylesheet" href="{relative("style.css", url)}">
</head>
<body class="{kind}">
<a class="skip" href="#content">To the text</a>
<header>
<a class="name" href="{relative("index.html", url)}">libnorla</a>
<span class="version">{html.escape(self.version)}</span>
<a class="find" href="{relative("find.html", url)}">Find</a>
<input type="checkbox" id="menu" aria-label="Menu"><label for="menu" aria-hidden="true">Menu</label>
<nav class="all" aria-label="All pages">
{self.navigation(url)}
</nav>
</header>
<main id="content">
{body}{self.neighbours(url)}</main>
</body>
</html>
"""
