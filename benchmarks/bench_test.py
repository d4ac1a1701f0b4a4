"""What scripts/bench decides, without measuring."""
import io
import unittest

import bench
import page
import rows
import runs


def row(name="a", ours=100, **more):
    return {"name": name, "ours": ours, "unit": "s", **more}


class GrownTest(unittest.TestCase):
    def test_more_than_the_guard_allows_is_reported(self):
        self.assertEqual(bench.grown([row(ours=103, guard=0.02)], [row(guard=0.02)]),
                         ["a: 103 s, was 100"])

    def test_what_the_guard_allows_is_not(self):
        self.assertEqual(bench.grown([row(ours=102, guard=0.02)], [row(guard=0.02)]), [])

    def test_less_is_not(self):
        self.assertEqual(bench.grown([row(ours=1, guard=0)], [row(guard=0)]), [])

    def test_a_row_without_a_guard_is_not_compared(self):
        self.assertEqual(bench.grown([row(ours=200)], [row()]), [])

    def test_a_row_that_was_never_measured_is_reported(self):
        self.assertEqual(bench.grown([row(guard=0)], []), ["a: not in " + bench.FIGURES_SHOWN])


class MissedTest(unittest.TestCase):
    def test_a_limit_that_is_passed_is_reported(self):
        self.assertEqual(bench.missed([rows.limited("a", 1501, "instructions", 1500)]),
                         ["a: ratio is 1.001, more than 1"])

    def test_a_limit_that_is_reached_is_not(self):
        self.assertEqual(bench.missed([rows.limited("a", 1500, "instructions", 1500)]), [])


class MergedTest(unittest.TestCase):
    def test_rows_of_benchmarks_that_did_not_run_stay_in_their_order(self):
        first, second = (function.__name__ for _, _, function in rows.BENCHMARKS[:2])
        known = [row("old", benchmark=first), row("kept", benchmark=second)]
        self.assertEqual(bench.merged([row("new", benchmark=first)], known),
                         [row("new", benchmark=first), row("kept", benchmark=second)])


class SelfCostsTest(unittest.TestCase):
    LINES = """\
ob=(1) /bin/flash-pages
fl=(1) ???
fn=(1) Own()
0 5
cob=(2) /lib/libc.so
cfn=(2) malloc
calls=3 0
0 700
+4 6

ob=(2)
fn=(2)
0 30

ob=(1)
fn=(1)
* 1
"""

    def test_costs_of_callees_are_left_out_and_names_are_kept(self):
        self.assertEqual(runs.self_costs(io.StringIO(self.LINES)),
                         {("/bin/flash-pages", "Own()"): 12, ("/lib/libc.so", "malloc"): 30})


class SummaryTest(unittest.TestCase):
    def test_the_parts_of_an_update_add_up(self):
        causes = dict.fromkeys(runs.CAUSES, 0) | {"message_cost": 5, "late_poll": 7, "sleep": 11}
        summary = runs.Summary({"total_ns": 130, "limit_ns": 100, "causes": causes, "pages": 1})
        self.assertEqual({name: round(value * 1e9) for name, value in summary.split().items()},
                         {"T": 100, "message costs": 5, "late polls": 7, "sleeps": 11, "the rest": 7})


class FigureTest(unittest.TestCase):
    def test_figures_have_four_digits(self):
        self.assertEqual([page.figure(value) for value in (587396, 54.98341, 0.00052, 3)],
                         ["587,396", "54.98", "0.00052", "3"])


if __name__ == "__main__":
    unittest.main()
