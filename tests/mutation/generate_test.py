#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What is made a mutant of, and what is not."""

import unittest

import generate


def changes(text, kind=None):
    """The texts that the mutants of `text` are, without the lines that they leave alone."""
    return [generate.apply(text, mutant) for mutant in generate.mutants_of(text)
            if kind in (None, mutant.kind)]


class Mutants(unittest.TestCase):
    def test_comparison_goes_to_its_neighbour(self):
        self.assertEqual(changes("a = b < c;", "comparison"), ["a = b <= c;"])
        self.assertEqual(changes("a = b != c;", "comparison"), ["a = b == c;"])

    def test_brackets_of_a_template_and_stars_of_a_pointer_are_no_operators(self):
        self.assertEqual(changes("static_cast<int>(a)", "comparison"), [])
        self.assertEqual(changes("char* const a", "arithmetic"), [])

    def test_constant_goes_one_up_and_one_down_in_its_notation(self):
        self.assertEqual(changes("x(9)"), ["x(10)", "x(8)"])
        self.assertEqual(changes("x(0x80u)"), ["x(0x7Fu)", "x(0x81u)"])
        self.assertEqual(changes("x(0)"), ["x(1)"])
        self.assertEqual(changes("x('a')"), ["x('`')"])
        self.assertEqual(changes("x(true)"), ["x(false)"])

    def test_text_begins_with_one_more_letter(self):
        self.assertEqual(changes('x("a")'), ['x("Xa")'])

    def test_conjunction_becomes_a_disjunction(self):
        self.assertEqual(changes("a = b && !c;", "logic"), ["a = b || !c;", "a = b && c;"])

    def test_condition_without_a_comparison_is_turned_round(self):
        self.assertEqual(changes("if (a.b()) {", "condition"), ["if (!(a.b())) {"])
        self.assertEqual(changes("if (a == b) {", "condition"), [])

    def test_statement_that_calls_or_assigns_is_deleted(self):
        self.assertEqual(changes("{ a(); }", "deletion"), ["{ ; }"])
        self.assertEqual(changes("{ a = b; }", "deletion"), ["{ ; }"])
        self.assertEqual(changes("{ break; }", "deletion"), ["{ ; }"])

    def test_break_of_the_default_case_stays(self):
        self.assertEqual(changes("case A: break; default: break;", "deletion"),
                         ["case A: ; default: break;"])

    def test_declaration_and_return_stay(self):
        self.assertEqual(changes("{ const int a = b; }", "deletion"), [])
        self.assertEqual(changes("{ Text a(b); }", "deletion"), [])
        self.assertEqual(changes("{ return a(); }", "deletion"), [])
        self.assertEqual(changes("A::~A() = default;", "deletion"), [])

    def test_comments_directives_and_attributes_are_left_alone(self):
        self.assertEqual(changes("// a < 1\n"), [])
        self.assertEqual(changes('#include "a.h"\n'), [])
        self.assertEqual(changes("#define A(x) \\\n    f(1, x)\n"), [])
        self.assertEqual(changes("__attribute__((format(printf, 1, 2)))"), [])

    def test_line_is_told_by_its_number_and_text(self):
        self.assertEqual(generate.line_of("a\n  b c\n", 4), (2, "b c"))


if __name__ == "__main__":
    unittest.main()
