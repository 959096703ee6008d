"""site_test.py SOURCE FUSION: the pages that scripts/docs makes, and what its look at the finished site notices."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

source, fusion = pathlib.Path(sys.argv[1]), sys.argv[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(source / "scripts"))
import site_links  # noqa: E402
import site_pages  # noqa: E402


class Folder(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self.temporary.name)

    def tearDown(self):
        self.temporary.cleanup()


class Pages(Folder):
    def test_every_method_has_a_page_with_all_that_is_said_of_it(self):
        site = site_pages.Site(source, self.folder)
        methods = json.loads(subprocess.run([fusion, "methods", "--json"], check=True, stdout=subprocess.PIPE).stdout)
        site.add_methods(methods)
        index = (self.folder / "methods/index.md").read_text()
        self.assertGreater(len(methods), 5)
        for method in methods:
            page = (self.folder / f"methods/{method['name']}.md").read_text()
            self.assertIn(f"[{method['name']}]({method['name']}.md)", index)
            for told in ("formula", "source", "suits", "spares"):
                self.assertIn(method[told][1:], page)
            for option in method["options"]:
                self.assertIn(f"\n| `{option}` | ", page)
        # Scene, without a fusion, by this method, by the best.
        hpf = (self.folder / "methods/hpf.md").read_text()
        self.assertRegex(hpf, r"\n\| made-up \| [0-9.]+ \| [0-9.]+ \| bayesian \*\*[0-9.]+\*\* \|\n")

    def test_links_between_documents_lead_to_pages(self):
        site = site_pages.Site(source, self.folder)
        self.assertEqual(site.page_of("README.md", "[a](docs/usage.md) [b](docs/abi.md#c) [d](LICENSE) [e](https://f)"),
                         "[a](usage.md) [b](abi.md#c) [d](LICENSE.txt) [e](https://f)\n")
        self.assertEqual(site.page_of("docs/usage.md", "[a](../SECURITY.md) [b](../examples/fuse) [c](#d)"),
                         "[a](security-policy.md) [b](examples.md#fuse) [c](#d)\n")

    def test_pictures_are_where_the_documents_want_them(self):
        site = site_pages.Site(source, self.folder)
        self.assertEqual(site.page_of("docs/guide.md", "<!-- picture a.png: what\nit shows -->"),
                         "![what it shows](pictures/a.png)\n\n*What it shows.*\n")

    def test_lists_and_bars_are_as_the_sites_markdown_has_them(self):
        self.assertEqual(site_pages.for_mkdocs("text:\n- one\n  more\n- two\n\n| `a\\|b` | c |\n```\nx\n- y\n```\n"),
                         "text:\n\n- one\n  more\n- two\n\n| `a|b` | c |\n```\nx\n- y\n```\n")


class Links(Folder):
    def faults(self, **files):
        for name, text in files.items():
            (self.folder / name.replace("_", ".")).write_text(text)
        return site_links.faults(self.folder)

    def test_nothing_is_wrong_with_a_whole_site(self):
        self.assertEqual(self.faults(a_html='<a href="b.html#c">x</a><a href="https://elsewhere/">y</a><img src="p.png">'
                                            '<a href="#d">z</a><p id="d">', b_html='<h1 id="c">', p_png=""), [])

    def test_dead_links_and_anchors(self):
        self.assertEqual(self.faults(a_html='<a href="c.html">x</a><a href="b.html#d">y</a><a href="#e">z</a>', b_html=""),
                         ["a.html: c.html leads nowhere", "a.html: b.html#d has no such anchor",
                          "a.html: #e has no such anchor"])

    def test_sources_elsewhere(self):
        self.assertEqual(self.faults(a_html='<script src="https://e/a.js"></script><link href="//e/a.css">',
                                     b_css="@import 'https://e/b.css'; p { background: url(http://e/c.png) }"),
                         ["a.html: https://e/a.js is fetched from elsewhere", "a.html: //e/a.css is fetched from elsewhere",
                          "b.css: https://e/b.css is fetched from elsewhere", "b.css: http://e/c.png is fetched from elsewhere"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
