#!/usr/bin/env python3
"""What the maker of the documentation's site finds wrong: docs/site/links.py, which files it has, and Markdown that is made into pages."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "docs/site"))

import links  # noqa: E402
import treefiles  # noqa: E402

INDEX = '<a href="other.html#place">There</a><link rel="stylesheet" href="style.css">'
OTHER = '<p id="place">Here. <a href="index.html">Back</a> <a href="https://www.example.com/">away</a></p>'
SOUND = {"index.html": INDEX, "other.html": OTHER, "style.css": ""}


class LinksTest(unittest.TestCase):
    def problems(self, **changed):
        """Of the sound site with some of its files replaced; None takes a file away."""
        with tempfile.TemporaryDirectory() as folder:
            for name, text in {**SOUND, **{name.replace("_", "."): text for name, text in changed.items()}}.items():
                if text is not None:
                    pathlib.Path(folder, name).write_text(text, encoding="utf-8")
            return list(links.problems(folder))

    def test_a_sound_site_has_none(self):
        self.assertEqual(self.problems(), [])

    def test_a_link_to_a_missing_page_is_one(self):
        self.assertIn("index.html: the link 'othre.html' leads to nothing",
                      self.problems(index_html=INDEX + '<a href="othre.html">x</a>'))

    def test_a_link_to_a_missing_place_is_one(self):
        self.assertEqual(self.problems(index_html=INDEX.replace("#place", "#palce")),
                         ["index.html: the link 'other.html#palce' leads to no place in other.html"])

    def test_a_link_out_of_the_folder_is_one(self):
        self.assertIn("index.html: the link '../other.html' leads to nothing",
                      self.problems(index_html=INDEX + '<a href="../other.html">x</a>'))

    def test_a_place_within_the_page_is_looked_for(self):
        self.assertEqual(self.problems(other_html=OTHER + '<a href="#top">x</a>'),
                         ["other.html: the link '#top' leads to no place in other.html"])

    def test_two_places_of_one_name_are_one(self):
        self.assertEqual(self.problems(other_html=OTHER + '<p id="place">x</p>'),
                         ["other.html: two places have the name #place"])

    def test_a_page_that_nobody_leads_to_is_one(self):
        self.assertEqual(self.problems(lost_html="<p>x</p>"), ["no page leads to lost.html"])

    def test_what_is_fetched_from_elsewhere_is_one(self):
        self.assertEqual(self.problems(other_html=OTHER + '<script src="https://www.example.com/x.js"></script>'),
                         ["other.html needs 'https://www.example.com/x.js' from elsewhere"])

    def test_a_missing_style_sheet_is_one(self):
        self.assertEqual(self.problems(style_css=None), ["index.html: the link 'style.css' leads to nothing"])

    def test_a_folder_without_a_first_page_is_one(self):
        self.assertIn("there is no index.html", self.problems(index_html=None)[0])


class FilesTest(unittest.TestCase):
    def files(self, *names, ignored=None):
        """That are found in a folder, which may be one that the repository around it ignores."""
        with tempfile.TemporaryDirectory() as folder:
            top = pathlib.Path(folder, ignored or "")
            for name in names:
                (top / name).parent.mkdir(parents=True, exist_ok=True)
                (top / name).write_text("", encoding="utf-8")
            if ignored:
                pathlib.Path(folder, ".gitignore").write_text(ignored, encoding="utf-8")
                subprocess.run(["git", "init", "--quiet"], cwd=folder, check=True)
            return sorted(treefiles.files_of(top))

    def test_those_of_a_tree_without_a_repository_are_found(self):
        self.assertEqual(self.files("README.md", "docs/a.md"), ["README.md", "docs/a.md"])

    def test_those_of_a_copy_in_an_ignored_folder_are_found(self):
        self.assertEqual(self.files("README.md", "docs/a.md", ignored="copy"), ["README.md", "docs/a.md"])

    def test_built_ones_are_left_out(self):
        self.assertEqual(self.files("build/x.md", "obj-docs/x.md", "debian/tmp/x.md", "debian/rules"), ["debian/rules"])


if __name__ == "__main__":
    unittest.main()
