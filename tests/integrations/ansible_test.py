#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''integrations/ansible with the real Ansible, on fleets of simulated head units.'''

import collections
import unittest

from fleet import Fleet, run_campaign
from head_unit import temporary_folder


class CampaignTest(unittest.TestCase):
    def campaign(self, size, faulty_every, most_failures):
        '''Returns (status, the fleet after its campaign), and holds the report to the units.'''
        folder = self.enterContext(temporary_folder())
        with Fleet(folder, size, faulty_every, 'none') as fleet:
            status, _ = run_campaign(fleet, most_failures)
        self.assertEqual([], fleet.contradictions(), (folder / 'ansible.log').read_text())
        return status, fleet

    def test_updates_what_is_sound_and_tells_what_is_not(self):
        status, fleet = self.campaign(12, faulty_every=2, most_failures=60)
        self.assertEqual(2, status)
        claims = fleet.claims()
        self.assertEqual(12, len(claims))
        faulty = {unit.name for unit in fleet.units if unit.fault}
        self.assertEqual(6, len({unit.fault for unit in fleet.units if unit.fault}))
        self.assertEqual(faulty, {name for name, claim in claims.items() if not claim['good']})
        self.assertTrue(all(claims[name]['what'] for name in faulty))
        self.assertEqual([1, 5, 6], sorted(
            collections.Counter(claim['wave'] for claim in claims.values()).values()))

        text = (fleet.results / 'report.txt').read_text()
        self.assertRegex(text, r'(?m)^all +12 .*\n0 never touched')
        page = (fleet.results / 'report.html').read_text()
        self.assertIn('6 of 12 units are up to date', page)
        for word in ('http', 'src=', 'href=', '@import', 'url('):
            self.assertNotIn(word, page, 'the page needs nothing but itself')

    def test_stops_after_a_wave_with_too_many_failures(self):
        status, fleet = self.campaign(9, faulty_every=3, most_failures=20)
        self.assertEqual(2, status)
        # The first wave is unit001; two of the five in the second one fail.
        self.assertEqual(['unit%03d' % number for number in range(1, 7)], sorted(fleet.claims()))
        for unit in fleet.units[6:8]:
            self.assertEqual((0, 0), (unit.seen()['resets'], unit.seen()['messages']))
        self.assertIn('3 never touched', (fleet.results / 'report.txt').read_text())


if __name__ == '__main__':
    unittest.main()
