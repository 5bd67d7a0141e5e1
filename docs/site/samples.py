"""Code that shows how a class is used: files that the tests compile and run, and else the tests themselves."""
import re

TEST = re.compile(r"^TEST(?:_F|_P)?\(\w+, \w+\)\n\{\n.*?^\}\n", re.MULTILINE | re.DOTALL)


class Sample:
    """A file that is compiled, or a test in one, and the place in the site that shows it; without a place the code
    stands alone."""

    def __init__(self, path, text, title, url=None):
        self.path, self.text, self.title, self.url = path, text, title, url
        self.words = set(re.findall(r"\w+", text))
        self.includes = set(re.findall(r'#include "([^"]+)"', text))

    def names(self, qualified):
        """Whether it names the class; of one within another both are named."""
        words = qualified.split("::")[1:]
        return all(word in self.words for word in words)


def tests_of(path, text):
    return [Sample(path, found, f"From a test, {path}") for found in TEST.findall(text)]


def best_test(qualified, tests):
    """The shortest test of some lines that names the class, of the class's own file if there is one; where none names
    it, any of that file. None if there is neither."""
    own = qualified.split("::")[1] + "Test.cpp"
    found = [test for test in tests if test.names(qualified)] or \
        [test for test in tests if test.path.endswith("/" + own)]
    return min(found, default=None,
               key=lambda test: (not test.path.endswith("/" + own), test.text.count("\n") < 8, len(test.text)))
