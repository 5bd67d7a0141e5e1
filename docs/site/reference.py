"""The reference: a page for each public class and for each header with functions, made of the headers' comments, of
the samples in which a class is used, and of the errors that its operations tell."""
import html
import posixpath
import re

import doxygen
import layout
import samples as code

ROOMS = [
    ("norla/core", "The transfer, its options, its errors"),
    ("norla/files", "Whole files"),
    ("norla/pool", "Many transfers in the background"),
    ("norla/http", "What HTTP asks of a program"),
    ("norla/proxy", "Which proxy for which URL"),
    ("norla/s3", "S3 stores"),
    ("norla/ftp", "FTP servers"),
    ("norla/mail", "Mail"),
    ("norla/async", "The thread, an older way into the background"),
    ("kx/base", "References and errors"),
    ("kx/text", "Text and numbers"),
    ("kx/files", "Paths and files"),
    ("kx/containers", "Containers"),
    ("kx/streams", "Streams"),
    ("kx/threads", "Threads"),
    ("kx/time", "Time"),
    ("kx/log", "The log"),
    ("kx/random", "Random numbers"),
    ("sela", "Digests, Base64 and TLS records"),
]
KINDS = [("enum", "Types"), ("typedef", "Types"), ("function", "Operations"), ("variable", "Fields")]


class Reference:
    def __init__(self, model, samples, tests, problems):
        self.model, self.samples, self.tests, self.problems = model, samples, tests, problems
        self.addresses = {}  # Doxygen's id -> url
        self.by_name = {}  # "norla::CNetRequest::setURL", "CNetRequest::setURL", "CNetRequest" -> url
        self.page = ""
        self.comments = doxygen.Comments(self._address)
        self.mentions = self._mentions(lambda compound: [member.element for member in compound.members])
        self.uses = self._mentions(lambda compound: [compound.element])  # with what is private
        for compound in model.compounds:
            self._register(compound.id, compound.qualified, self.url_of(compound))
            self._register_members(compound.members, self.url_of(compound))
        for header, members in model.free.items():
            self._register_members(members, self.header_url(header))

    @staticmethod
    def url_of(compound):
        return f"reference/{compound.qualified.replace('::', '.')}.html"

    @staticmethod
    def header_url(header):
        return f"reference/{header.replace('/', '.').removesuffix('.h')}_h.html"

    def _register(self, number, qualified, url):
        self.addresses[number] = url
        for name in (qualified, qualified.split("::", 1)[-1]):
            self.by_name.setdefault(name, url)

    def _register_members(self, members, url):
        for member in members:
            self._register(member.id, member.qualified, f"{url}#{member.anchor}")
            for value in member.element.findall("enumvalue"):
                self.addresses[value.get("id")] = f"{url}#{member.anchor}"

    def _address(self, number):
        url = self.addresses.get(number)
        return layout.relative(url, self.page) if url else None

    def named(self, text, page):
        """The address of what a piece of code names: `CNetRequest`, `CNetRequest::setURL()`, `kx::P`; or None."""
        name = re.sub(r"\(.*\)$|<.*>$", "", text.strip())
        url = self.by_name.get(name) if re.fullmatch(r"[\w:]{2,}|kx::P", name) else None
        if not url or url.partition("#")[0] == page:
            return None
        if "::" not in name and not re.match(r"[CIT][A-Z]\w+$", name) and not text.strip().endswith(")"):
            return None
        return layout.relative(url, page)

    def link_name(self, word, page):
        """The same for a word within a sample: classes alone, since a function's name may be somebody else's."""
        if not re.match(r"[CIT][A-Z]\w+$", word) or word not in self.by_name:
            return None
        address = layout.relative(self.by_name[word], page)
        return f'<a href="{address}">{html.escape(word)}</a>'

    def _mentions(self, declared):
        """Class -> the classes whose declarations, those that `declared(compound)` gives, name it."""
        found = {}
        for compound in self.model.compounds:
            for ref in (ref for element in declared(compound) for ref in element.iter("ref")):
                if ref.get("kindref") == "compound" and ref.get("refid") != compound.id:
                    found.setdefault(ref.get("refid"), set()).add(compound.qualified)
        return found

    def samples_of(self, compound):
        """Those that name the class; pages before programs, the shortest first; or a test."""
        found = sorted((sample for sample in self.samples if sample.names(compound.qualified)),
                       key=lambda sample: (sample.path.startswith("examples/"), len(sample.text)))
        test = None if found else code.best_test(compound.qualified, self.tests)
        return [test] if test else found

    # --- pages

    def write(self, site):
        for compound in self.model.compounds:
            self.page = self.url_of(compound)
            if not compound.has_brief:
                self.problems.append(f"{compound.file}: {compound.qualified} has no sentence that says what it is")
            site.add(self.page, compound.name, self._class_page(compound))
        for header, members in self.model.free.items():
            self.page = self.header_url(header)
            site.add(self.page, header, self._header_page(header, members))
        self.page = "reference/index.html"
        site.add(self.page, "Reference", self._index())

    def _head(self, kind, title, file):
        room = posixpath.dirname(file)
        way = f'<p class="way"><a href="{layout.relative("reference/index.html#" + anchor_of(room), self.page)}">' \
            f"{room}</a></p>\n"
        title = re.sub(r"(::|/)", r"\1<wbr>", html.escape(title))
        return f'{way}<h1><small>{kind}</small> {title}</h1>\n' \
            f'<pre class="include"><code>#include "{file}"</code></pre>\n'

    def _class_page(self, compound):
        parts = [self._head("concept" if compound.kind == "concept" else "class", compound.qualified, compound.file),
                 f'<div class="about">{self.comments.description(compound.element)}</div>\n', self._family(compound)]
        members = [member for member in compound.members if self._is_shown(member, compound)]
        if compound.kind == "concept":
            parts.append(f"<pre><code>{self.comments.inline(compound.element.find('initializer'))}</code></pre>")
        parts += [self._example(compound), self._overview(members), self._details(members), self._errors(members)]
        return "".join(parts)

    def _header_page(self, header, members):
        return "".join([self._head("header", header, header), self._used_in(header), self._overview(members),
                        self._details(members), self._errors(members)])

    @staticmethod
    def _is_shown(member, compound):
        is_copy = member.name == "operator=" or member.name == compound.qualified.rpartition("::")[2]
        if member.is_deleted:
            return member.is_documented
        return member.is_documented or not (member.name.startswith("~") or
                                            is_copy and "default" in member.arguments and "()" not in member.arguments)

    def _family(self, compound):
        rows = []
        for text, listed in (("Is a", compound.bases), ("Kinds of it", compound.derived)):
            links = [self._class_link(one) for one in listed if one.get("refid") in self.addresses]
            if links:
                rows.append(f"<p>{text}: {', '.join(links)}</p>\n")
        users = sorted(self.mentions.get(compound.id, ()))
        if users and len(users) <= 12:
            links = [f'<a href="{layout.relative(self.by_name[name], self.page)}"><code>{name.split("::", 1)[1]}'
                     "</code></a>" for name in users if name in self.by_name]
            rows.append(f"<p>Named by: {', '.join(links)}</p>\n")
        return "".join(rows)

    def _class_link(self, reference):
        return f'<a href="{self._address(reference.get("refid"))}"><code>{html.escape(reference.text)}</code></a>'

    def _links(self, samples):
        links = {sample.url: sample.title for sample in samples}
        return ", ".join(f'<a href="{layout.relative(url, self.page)}">{html.escape(title)}</a>'
                         for url, title in links.items())

    def _used_in(self, header):
        found = [sample for sample in self.samples if header in sample.includes]
        return self._used(found) if found else ""

    def _example(self, compound):
        """The shortest sample in full, and where the class is used else; or where to find one."""
        found = self.samples_of(compound)
        if not found:
            return self._others_example(compound)
        first = found[0]
        block = layout.code_block(first.text, "cpp", lambda word: None if word == compound.name else
                                  self.link_name(word, self.page))
        opened = " open" if len(first.text) < 1600 else ""
        more = "" if first.url else self._links_to([other for other in self._near(compound) if self._has_page(other)])
        return f'<h2 id="example">Example</h2>\n<details{opened}><summary>{html.escape(first.title)}</summary>\n' \
            f"{block}</details>\n{self._used(found)}{f'<p>See also that of {more}.</p>' if more else ''}\n"

    def _has_page(self, compound):
        """Whether a page or a program shows how it is used, and not a test alone."""
        return any(sample.url for sample in self.samples_of(compound))

    def _links_to(self, compounds):
        places = {other.name: layout.relative(self.url_of(other) + "#example", self.page) for other in compounds}
        return ", ".join(f'<a href="{place}"><code>{name}</code></a>' for name, place in list(places.items())[:4])

    def _others_example(self, compound):
        """Of a class that names this one, such as the one that takes these options, or of a kind of it."""
        near = self._near(compound)
        shown = [other for other in near if self.samples_of(other)] or \
            [further for other in near for further in self._near(other) if self.samples_of(further)]
        if not shown:
            comment = compound.element.find("detaileddescription")
            if compound.kind != "concept" and not any(True for _ in comment.iter("verbatim")):
                self.problems.append(f"{compound.file}: no sample and no test shows how {compound.qualified} is used, "
                                     "nor a class that names it")
            return ""
        return f'<h2 id="example">Example</h2>\n<p>That of {self._links_to(shown)}.</p>\n'

    def _near(self, compound):
        numbers = {derived.get("refid") for derived in compound.derived}
        return [other for other in self.model.compounds
                if other.qualified in self.uses.get(compound.id, ()) or other.id in numbers or
                compound.qualified.startswith(other.qualified + "::")]

    def _used(self, samples):
        shown = [sample for sample in samples if sample.url]
        count = len({sample.url for sample in shown})
        links = self._links(shown)
        if count > 8:
            return f"<details><summary>Used in {count} places</summary>\n<p>{links}</p></details>\n"
        return f"<p>Used in: {links}</p>\n" if shown else ""

    def _overview(self, members):
        parts, seen = [], []
        for kind, title in KINDS:
            if title in seen:
                continue
            seen.append(title)
            chosen = [member for member in members if (title == "Types") == (member.kind in ("enum", "typedef")) and
                      (title != "Fields") == (member.kind != "variable")]
            if title == "Operations":
                chosen = [member for member in chosen if member.kind in ("function", "define")]
            names = {}
            for member in chosen:
                names.setdefault(member.name, member)
            links = [f'<a href="#{member.anchor}"><code>{html.escape(name)}</code></a>'
                     for name, member in names.items()]
            if links:
                parts.append(f"<dt>{title}</dt><dd>{' '.join(links)}</dd>\n")
        return f'<h2 id="overview">Overview</h2>\n<dl class="overview">\n{"".join(parts)}</dl>\n' if parts else ""

    def _details(self, members):
        parts = []
        for member in members:
            marks = '<span class="mark">for derived classes</span>' if member.is_protected else ""
            parts.append(f'<section class="member" id="{member.anchor}">\n<pre tabindex="0"><code>'
                         f"{self.comments.declaration(member)}</code></pre>{marks}\n"
                         f"{self._about(member)}{self._values(member)}</section>\n")
        return f'<h2 id="details">In detail</h2>\n{"".join(parts)}' if parts else ""

    def _about(self, member):
        text = self.comments.description(member.element)
        base = member.element.find("reimplements")
        if not text and base is not None and base.get("refid") in self.addresses:
            url = self.addresses[base.get("refid")]
            owner = posixpath.basename(url.partition("#")[0]).removesuffix(".html").replace(".", "::")
            return f'<p>As <a href="{self._address(base.get("refid"))}"><code>{owner}::{member.name}()</code></a> ' \
                "says.</p>\n"
        return text

    def _values(self, member):
        rows = [f"<tr><td><code>{value.findtext('name')}</code></td><td>{self.comments.description(value)}</td></tr>"
                for value in member.element.findall("enumvalue")]
        return f'<div class="table" tabindex="0"><table>{"".join(rows)}</table></div>\n' if rows else ""

    def _errors(self, members):
        rows = []
        for member in members:
            texts = list(self.comments.errors(member.element))
            if texts:
                rows.append(f'<tr><td><a href="#{member.anchor}"><code>{html.escape(member.name)}</code></a></td>'
                            f"<td>{'<br>'.join(texts)}</td></tr>\n")
        if not rows:
            return ""
        return f'<h2 id="errors">Errors</h2>\n<div class="table" tabindex="0"><table>\n<tr><th>Operation</th>' \
            f'<th>Throws</th></tr>\n{"".join(rows)}</table></div>\n'

    def _index(self):
        parts = ["<h1>Reference</h1>\n<p>Made of the comments in the headers. A class is in the header of its name; "
                 "what stands in no class is listed by header.</p>\n"]
        rooms = dict(ROOMS)
        for header in self.model.headers:
            rooms.setdefault(posixpath.dirname(header), "")
        for room, about in rooms.items():
            rows = [self._row(self.url_of(compound), compound.name, compound.element)
                    for compound in self.model.compounds if posixpath.dirname(compound.file) == room]
            for header, members in self.model.free.items():
                if posixpath.dirname(header) == room:
                    names = dict.fromkeys(member.name for member in members)
                    words = ", ".join(f"<code>{html.escape(name)}</code>" for name in names)
                    rows.append(f'<tr><td><a href="{layout.relative(self.header_url(header), self.page)}"><code>'
                                f"{posixpath.basename(header)}</code></a></td><td>{words}</td></tr>\n")
            if rows:
                parts.append(f'<h2 id="{anchor_of(room)}">{html.escape(about or room)} <small>{room}</small></h2>\n'
                             f'<div class="table"><table class="index">\n{"".join(rows)}</table></div>\n')
        return "".join(parts)

    def _row(self, url, name, element):
        brief = self.comments.inline(element.find("briefdescription"))
        return f'<tr><td><a href="{layout.relative(url, self.page)}"><code>{html.escape(name)}</code></a></td>' \
            f"<td>{brief}</td></tr>\n"


def anchor_of(room):
    return room.replace("/", "-")
