"""What Doxygen's XML says of the public headers, and its comments as HTML."""
import html
import pathlib
import re
import xml.etree.ElementTree as tree

import layout

PERCENT = "\ue025"  # what the filter in docs/Doxyfile makes of it
MEMBER_KINDS = ("function", "variable", "typedef", "enum", "define")
TAGS = {"bold": "strong", "emphasis": "em", "computeroutput": "code", "itemizedlist": "ul", "orderedlist": "ol",
        "listitem": "li", "para": "p"}
SIGNS = {"ndash": "–", "mdash": "—", "linebreak": "<br>", "nonbreakablespace": "&nbsp;", "sp": " "}


class Member:
    """A function, field, type or value that is declared in a class or a header."""

    def __init__(self, element):
        self.element = element
        self.id = element.get("id")
        self.kind = element.get("kind")
        self.name = element.findtext("name")
        self.qualified = element.findtext("qualifiedname") or self.name
        self.arguments = element.findtext("argsstring") or ""
        location = element.find("location")
        self.file, self.line = location.get("file"), int(location.get("line"))
        self.anchor = ""
        self.is_static = element.get("static") == "yes"
        self.is_protected = element.get("prot") == "protected"

    @property
    def is_documented(self):
        return has_text(self.element.find("briefdescription")) or has_text(self.element.find("detaileddescription"))

    @property
    def is_deleted(self):
        return self.arguments.rstrip().endswith("delete")


class Compound:
    """A class, a struct or a concept."""

    def __init__(self, element):
        self.element = element
        self.id = element.get("id")
        self.kind = element.get("kind")
        self.qualified = re.sub(r"\s*<.*", "", element.findtext("compoundname"))
        self.name = self.qualified.split("::", 1)[-1]
        location = element.find("location")
        self.file = location.get("file")
        self.members = sorted(
            (Member(member) for member in element.iter("memberdef")
             if member.get("kind") in MEMBER_KINDS and member.get("prot") in ("public", "protected")),
            key=lambda member: member.line)
        self.bases = [base for base in element.findall("basecompoundref") if base.get("prot") == "public"]
        self.derived = element.findall("derivedcompoundref")
        number_overloads(self.members)

    @property
    def has_brief(self):
        return has_text(self.element.find("briefdescription"))


def has_text(element):
    return element is not None and "".join(element.itertext()).strip() != ""


def number_overloads(members):
    seen = {}
    for member in members:
        word = re.sub(r"\W+", "-", member.name).strip("-") or "operator"
        seen[word] = seen.get(word, 0) + 1
        member.anchor = word if seen[word] == 1 else f"{word}-{seen[word]}"


def public_headers(top):
    """The headers that are installed, in the order of the build: kx/CMakeLists.txt and the like list them."""
    for room in ("norla", "kx", "sela"):
        text = (top / room / "CMakeLists.txt").read_text(encoding="utf-8")
        for listed in re.findall(r"FILE_SET HEADERS BASE_DIRS \S+ FILES\s([^)]*)", text):
            yield from (f"{room}/{name}" for name in listed.split())


class Model:
    """All that the public headers declare: classes by name, and what stands in no class, header by header."""

    def __init__(self, folder, headers):
        self.headers = list(headers)
        wanted = set(self.headers)
        self.compounds, self.free = [], {}
        for path in sorted(pathlib.Path(folder).glob("*.xml")):
            if path.name.startswith(("class", "struct", "concept", "namespace")):
                text = path.read_text(encoding="utf-8").replace(PERCENT, "%")
                self._read(tree.fromstring(text.encode("utf-8")).find("compounddef"), wanted)
        self.compounds.sort(key=lambda compound: compound.name.lower())
        for members in self.free.values():
            members.sort(key=lambda member: member.line)
            number_overloads(members)

    def _read(self, element, wanted):
        if element.get("kind") == "namespace":
            for member in map(Member, element.iter("memberdef")):
                if member.file in wanted and member.kind in MEMBER_KINDS:
                    self.free.setdefault(member.file, []).append(member)
        elif element.get("prot", "public") == "public" and element.find("location").get("file") in wanted:
            self.compounds.append(Compound(element))


class Comments:
    """Comments and declarations as HTML. `address(id)` is where an id of Doxygen's leads, or None."""

    def __init__(self, address):
        self.address = address

    def inline(self, element):
        """What stands within a line: the text of the element and of what is in it."""
        if element is None:
            return ""
        parts = [html.escape(element.text or "", quote=False)]
        for child in element:
            parts += [self._child(child), html.escape(child.tail or "", quote=False)]
        return "".join(parts)

    def _child(self, child):
        inside = self.inline(child)
        if child.tag == "ref":
            address = self.address(child.get("refid"))
            return f'<a href="{address}">{inside}</a>' if address else inside
        if child.tag == "ulink":  # an address in a comment is an example
            return f"<code>{inside}</code>"
        if child.tag in SIGNS:
            return SIGNS[child.tag]
        if child.tag in ("verbatim", "programlisting"):
            return "</p>" + layout.code_block(child.text or "", "cpp") + "<p>"
        if child.tag == "parameterlist":
            return "</p>" + self._parameters(child) + "<p>"
        if child.tag == "simplesect":
            return f'</p><dl><dt>{"Returns" if child.get("kind") == "return" else child.get("kind").title()}</dt>' \
                f"<dd>{self._unwrapped(child)}</dd></dl><p>"
        tag = TAGS.get(child.tag)
        return f"<{tag}>{inside}</{tag}>" if tag else inside

    def _unwrapped(self, element):
        return re.sub(r"^\s*<p>|</p>\s*$", "", self.inline(element).strip())

    def _parameters(self, element):
        is_error = element.get("kind") == "exception"
        title = "Errors" if is_error else "Parameters"
        items = map(self.error if is_error else self.named, element.findall("parameteritem"))
        return f"<dl><dt>{title}</dt>{''.join(f'<dd>{item}</dd>' for item in items)}</dl>"

    def named(self, item):
        """A parameter, or an error and when it is thrown."""
        word = ", ".join(self.inline(name).strip() for name in item.iter("parametername"))
        about = self._unwrapped(item.find("parameterdescription"))
        return f"<code>{word}</code> {about}"

    def error(self, item):
        """The same where the first word need be no name: `@throws as reset()`."""
        word = self.inline(item.find("parameternamelist/parametername")).strip()
        about = self._unwrapped(item.find("parameterdescription"))
        return f"<code>{word}</code> {about}" if re.search(r"(Error|bad_alloc)\b", word) else f"{word} {about}"

    def description(self, element):
        """Brief and details, as paragraphs."""
        parts = [self.inline(element.find(name)) for name in ("briefdescription", "detaileddescription")]
        return re.sub(r"<p>\s*</p>", "", " ".join(part.strip() for part in parts if part.strip()))

    def errors(self, element):
        """What the comment says behind @throws, one text for each."""
        for listed in element.iter("parameterlist"):
            if listed.get("kind") == "exception":
                yield from (self.error(item) for item in listed.findall("parameteritem"))

    def declaration(self, member):
        """The declaration of a function or field, in more lines where one would be long."""
        element = member.element
        start = self._template(element) + ("static " if member.is_static else "")
        start += "virtual " if element.get("virt") == "pure-virtual" else ""
        kind = self.inline(element.find("type"))
        name = f"<b>{html.escape(member.name)}</b>"
        if member.kind == "typedef":
            return f"using {name} = {kind}"
        if member.kind == "enum":
            return f"enum {'class ' if element.get('strong') == 'yes' else ''}{name}"
        if member.kind == "define":
            return f"#define {name}"
        if member.kind == "variable":
            return f"{start}{kind} {name}{html.escape(member.arguments)}{self._initial(element)}"
        return start + (kind + " " if kind else "") + name + self._arguments(member)

    def _initial(self, element):
        value = self.inline(element.find("initializer")).strip()
        return f" {value}" if value and "\n" not in value else ""

    def _template(self, element):
        listed = element.find("templateparamlist")
        if listed is None:
            return ""
        words = [" ".join(filter(None, (self.inline(param.find("type")), self.inline(param.find("declname")))))
                 for param in listed.findall("param")]
        return f"template &lt;{', '.join(words)}&gt;\n"

    def _arguments(self, member):
        words = []
        for param in member.element.findall("param"):
            default = self.inline(param.find("defval"))
            word = self.inline(param.find("type"))
            array = self.inline(param.find("array"))
            name = self.inline(param.find("declname"))
            joined = word.replace("(&amp;)", f"(&amp;{name})") if "(&amp;)" in word else f"{word} {name}".strip()
            words.append(joined + array + (f" = {default}" if default else ""))
        behind = html.escape(member.arguments.rpartition(")")[2])
        plain = sum(len(layout.plain(word)) + 2 for word in words) + len(member.name)
        if plain > 76 and len(words) > 1:
            return "(\n    " + ",\n    ".join(words) + ")" + behind
        return "(" + ", ".join(words) + ")" + behind
