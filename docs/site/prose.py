"""Pages of Markdown as pages of the site: links between files of the tree become links between pages, and a link to
what is not there is a problem."""
import copy
import html
import re

from markdown_it import MarkdownIt
from markdown_it.token import Token

import layout

MARKDOWN = MarkdownIt("commonmark").enable("table")


def slug(text, used):
    """The anchor of a heading, as GitHub makes it."""
    plain = re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")
    count = used.get(plain, -1) + 1
    used[plain] = count
    return f"{plain}-{count}" if count else plain


def inline_text(token):
    return "".join(child.content for child in token.children or [] if child.type in ("text", "code_inline"))


class Chapter:
    """A heading and what follows it, up to the next one of its level or a higher one."""

    def __init__(self, title, anchor, tokens):
        self.title, self.anchor, self.tokens = title, anchor, tokens


class Document:
    """A file of Markdown: its title, what stands before the first chapter, and the chapters (## headings)."""

    def __init__(self, name, text):
        self.name = name
        tokens = MARKDOWN.parse(text)
        used = {}
        self.anchors = {}  # anchor -> number of the chapter, 0 before the first one
        self.samples = []  # files that are linked: (path, number of the chapter)
        self.title, self.chapters = name, [Chapter("", "", [])]
        for at, token in enumerate(tokens):
            if token.type == "heading_open":
                self._enter(token, tokens[at + 1], used)
            if token.type == "inline":
                self.samples += [(child.attrs["href"], len(self.chapters) - 1)
                                 for child in token.children if child.type == "link_open"]
            self.chapters[-1].tokens.append(token)

    def _enter(self, token, inside, used):
        text = inline_text(inside)
        anchor = slug(text, used)
        if token.tag == "h1":
            self.title = text
        if token.tag == "h2":
            self.chapters.append(Chapter(text, anchor, []))
        token.attrs["id"] = anchor
        self.anchors[anchor] = len(self.chapters) - 1


class Renderer:
    """Makes HTML of chapters. `resolve(name, link, page)` gives the address within the site, or None for what has no
    page of its own; it notes what is wrong."""

    def __init__(self, resolve, link_names, page_of_name, title_of):
        self.resolve, self.link_names, self.page_of_name, self.title_of = resolve, link_names, page_of_name, title_of

    def render(self, name, tokens, page, title_level=2):
        self.page, self.name = page, name
        return MARKDOWN.renderer.render(list(self._changed(copy.deepcopy(tokens), title_level)), MARKDOWN.options, {})

    def _changed(self, tokens, title_level):
        for token in tokens:
            if token.type in ("fence", "code_block"):
                yield self._html(self._code(token))
            elif token.type == "html_block":
                continue  # comments
            elif token.type == "table_open":
                yield self._html('<div class="table" tabindex="0"><table>\n')
            elif token.type == "table_close":
                yield self._html("</table></div>\n")
            elif token.type in ("heading_open", "heading_close") and title_level == 1:
                yield self._raised(token)
            elif token.type == "inline":
                token.children = list(self._inline(token.children))
                yield token
            else:
                yield token

    @staticmethod
    def _html(text):
        return Token("html_block", "", 0, content=text)

    @staticmethod
    def _raised(token):
        """The heading of a chapter that has a page of its own is that page's title."""
        if token.tag != "h1":
            token.tag = f"h{int(token.tag[1]) - 1}"
        return token

    def _code(self, token):
        language = token.info.strip()
        return layout.code_block(token.content, language, (lambda word: self.link_names(word, self.page))
                                 if language == "cpp" else None)

    def _inline(self, children):
        """Links lead to pages, code to the reference, and a page is named by its title."""
        for link, text in zip(children, children[1:]):
            if link.type == "link_open" and text.type == "text" and text.content == link.attrs["href"]:
                text.content = self.title_of(self.name, text.content)
        dropped = []
        linked = 0
        for child in children:
            if child.type == "link_open":
                target = self.resolve(self.name, child.attrs["href"], self.page)
                dropped.append(target is None)
                linked += 1
                if target is None:
                    continue
                child.attrs["href"] = target
            elif child.type == "link_close":
                linked -= 1
                if dropped.pop():
                    continue
            elif child.type == "image":
                child.attrs["src"] = self.resolve(self.name, child.attrs["src"], self.page)
            elif child.type == "code_inline" and not linked:
                address = self.page_of_name(child.content, self.page)
                if address:
                    yield Token("html_inline", "", 0, content=f'<a href="{address}"><code>'
                                f"{html.escape(child.content)}</code></a>")
                    continue
            yield child
