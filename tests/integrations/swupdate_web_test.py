#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''SWUpdate's web page in a browser, while the updater works on a simulated head unit.

BBP_SCREENSHOT names the file that the picture in the middle of the update goes to.
'''

import os
import re
import unittest

from selenium import webdriver
from selenium.webdriver.common.by import By

from head_unit import (PATIENCE, ROOT, HeadUnit, make_image, make_signer, temporary_folder,
                       tool, wait_until)

INTEGRATION = ROOT / 'integrations/swupdate'
ADDRESS = '127.0.2.250:8080'


def start_browser(folder):
    options = webdriver.ChromeOptions()
    for argument in ('--headless', '--no-sandbox', '--disable-gpu', '--disable-quic',
                     '--no-first-run', '--disable-background-networking', '--disable-sync',
                     '--disable-component-update', '--user-data-dir=%s' % (folder / 'browser'),
                     '--window-size=1000,900', '--hide-scrollbars'):
        options.add_argument(argument)
    options.binary_location = '/usr/bin/chromium'
    browser = webdriver.Chrome(service=webdriver.chrome.service.Service('/usr/bin/chromedriver'),
                               options=options)
    browser.set_page_load_timeout(PATIENCE)
    return browser


class WebTest(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(temporary_folder())
        self.image = make_image(self.folder / 'image.bin')
        key, self.certificate = make_signer(self.folder, 'maker')
        self.update = self.folder / 'update.swu'
        tool(INTEGRATION / 'make-swu', self.image, '1.0', key, self.certificate, self.update)
        self.browser = start_browser(self.folder)
        self.addCleanup(self.browser.quit)

    def serve(self, **options):
        '''A unit whose agent waits for updates by the web page; it runs until the test's end.'''
        unit = HeadUnit(self.folder / 'unit', **options)
        with (self.folder / 'agent.txt').open('w') as log:
            process = unit.start(
                'swupdate', '-v', '-H', 'headunit:1.0', '-k', self.certificate,
                '-w', '-r /usr/share/swupdate/www -p ' + ADDRESS,
                LUA_PATH='%s/?.lua;;' % INTEGRATION, output=log)
        self.addCleanup(process.wait, PATIENCE)
        self.addCleanup(process.terminate)
        wait_until(lambda: 'web server version' in (self.folder / 'agent.txt').read_text(),
                   'the web page is served')
        return unit

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def upload(self):
        self.browser.get('http://' + ADDRESS)
        wait_until(self.find('#swu-idle').is_displayed, 'the page is connected')
        self.find('input.dz-hidden-input').send_keys(str(self.update))

    def percent(self):
        shown = re.match(r'(\d+)% \(1 of 1\)', self.find('#swu-progress-value').text)
        return int(shown[1]) if shown else 0

    def messages(self):
        return self.find('#messages').get_attribute('textContent')

    def is_successful(self):
        # After a success SWUpdate would restart the system, and the page says that next.
        return any(self.find(name).is_displayed() for name in ('#swu-success', '#swu-done'))

    def test_shows_an_update(self):
        unit = self.serve()
        self.upload()
        wait_until(unit.is_burning, 'the chip burns')
        wait_until(lambda: 50 < self.percent() < 100, 'the page shows the burn')
        self.find('.card').screenshot(os.environ.get('BBP_SCREENSHOT', str(self.folder / 'p.png')))
        wait_until(self.is_successful, 'the page shows the success')
        self.assertIn('bbpflash: HD 2.10.4 -> HD 2.11.0, verified', self.messages())
        self.assertTrue(unit.holds(self.image))

    def test_shows_a_failure(self):
        self.serve(faults=['segment 5 refuse'])
        self.upload()
        wait_until(self.find('#swu-failure').is_displayed, 'the page shows the failure')
        self.assertFalse(self.is_successful())
        self.assertIn('bbpflash: the update failed', self.messages())


if __name__ == '__main__':
    unittest.main()
