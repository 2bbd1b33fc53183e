"""Holds the check of the surface to what it is for: small libraries, each with one change, are told or passed."""
import os
import subprocess
import sys
import tempfile
import unittest

from check_abi import describe, differences, exported

COMPILER = sys.argv.pop(1)

HEADER = """
enum Kind { kPlain = 0, kField = 1 };
struct Picture { int width; int height; long duration; };
int Area(const struct Picture* picture);
int IsField(enum Kind kind);
"""
CODE = """
#include "surface.h"
int Area(const struct Picture* picture) { return picture->width * picture->height; }
int IsField(enum Kind kind) { return kind == kField; }
"""


class Surface(unittest.TestCase):
    """One library is described; each case builds another and asks what has changed."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.released = describe(*cls.built("released", HEADER, CODE))

    @classmethod
    def built(cls, name, header, code):
        headers = os.path.join(cls.folder.name, name)
        os.makedirs(headers)
        for file, text in (("surface.h", header), ("surface.c", code)):
            with open(os.path.join(headers, file), "w", encoding="utf-8") as out:
                out.write(text)
        library = os.path.join(headers, "libsurface.so.1")
        subprocess.run([COMPILER, "-g", "-shared", "-fPIC", "-Wl,-soname,libsurface.so.1", "-o", library,
                        os.path.join(headers, "surface.c")], check=True)
        return library, headers

    def told(self, header, code):
        return differences(self.released, *self.built(self.id().rsplit(".", 1)[-1], header, code))

    def test_the_same_passes(self):
        self.assertEqual(self.told(HEADER, CODE), "")

    def test_a_field_taken_out_is_told(self):
        told = self.told(HEADER.replace("int height; ", ""), CODE.replace(" * picture->height", ""))
        self.assertIn("height", told)

    def test_fields_that_changed_places_are_told(self):
        self.assertIn("width", self.told(HEADER.replace("int width; int height;", "int height; int width;"), CODE))

    def test_a_field_of_another_type_is_told(self):
        self.assertIn("duration", self.told(HEADER.replace("long duration", "double duration"), CODE))

    def test_a_function_taken_out_is_told(self):
        self.assertIn("IsField", self.told(HEADER, CODE.replace("int IsField", "static inline int IsField_").replace(
            "kField; }", "kField; } int other;")))

    def test_another_parameter_is_told(self):
        self.assertIn("IsField", self.told(*(text.replace("enum Kind kind)", "enum Kind kind, int more)")
                                             for text in (HEADER, CODE))))

    def test_another_value_is_told(self):
        self.assertIn("kField", self.told(HEADER.replace("kField = 1", "kField = 2"), CODE))

    def test_a_function_more_passes(self):
        self.assertEqual(self.told(HEADER + "int More(void);", CODE + "int More(void) { return 1; }"), "")

    def test_a_value_more_at_the_end_passes(self):
        self.assertEqual(self.told(HEADER.replace("kField = 1", "kField = 1, kFrame = 2"), CODE), "")

    def test_names_are_read_as_symbols_files_have_them(self):
        library, _ = self.built("names", HEADER, CODE)
        self.assertEqual(exported(library), {"Area@Base", "IsField@Base"})


if __name__ == "__main__":
    unittest.main()
