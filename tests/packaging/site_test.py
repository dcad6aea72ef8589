#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''The site of the pages, in a real browser without a window.

usage: site_test.py SITE [SCREENSHOTS]

SITE is what docs/make_site.py has made; it is served on a port of the loopback interface. With a folder
SCREENSHOTS the first page is kept there as it looks at a desk and on a phone.
'''

import functools
import http.server
import pathlib
import sys
import threading
import unittest
import urllib.parse
import urllib.request

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

SITE = pathlib.Path()
SCREENSHOTS = None
DEADLINE = 60  # seconds
PHONE = 360  # pixels across


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


def browser():
    options = webdriver.ChromeOptions()
    for argument in ('--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'):
        options.add_argument(argument)
    return webdriver.Chrome(options=options)


class Site(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        handler = functools.partial(Quiet, directory=str(SITE))
        cls.server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), handler)
        cls.addClassCleanup(cls.server.server_close)
        threading.Thread(target=cls.server.serve_forever, daemon=True).start()
        cls.addClassCleanup(cls.server.shutdown)
        cls.base = 'http://127.0.0.1:%d/' % cls.server.server_port
        cls.browser = browser()
        cls.addClassCleanup(cls.browser.quit)
        cls.pages = sorted(page.name for page in SITE.glob('*.html') if page.name != '404.html')

    def width(self, pixels):
        '''The window as wide as a device of that many pixels.'''
        self.browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride', {
            'width': pixels, 'height': 800, 'deviceScaleFactor': 1, 'mobile': pixels < 500})

    def attributes(self, element, attribute):
        return self.browser.execute_script(
            'return Array.from(document.querySelectorAll(arguments[0]), e => e[arguments[1]])',
            element, attribute)

    def test_no_link_is_dead(self):
        '''Every link within the site leads to a page that is there, and to a place in it.'''
        self.assertGreater(len(self.pages), 12)
        targets, places = set(), {}
        for page in self.pages:
            self.browser.get(self.base + page)
            places[self.base + page] = set(self.attributes('[id]', 'id'))
            targets |= {(page, link) for link in self.attributes('a[href]', 'href')}
        checked = 0
        for page, link in sorted(targets):
            address, place = urllib.parse.urldefrag(link)
            if not address.startswith(self.base):
                self.assertRegex(address, '^https://', page)
                continue
            address += 'index.html' if address.endswith('/') else ''
            if address not in places:
                self.assertEqual(urllib.request.urlopen(address).status, 200, link)
            elif place:
                self.assertIn(urllib.parse.unquote(place), places[address], 'on %s: %s' % (page, link))
            checked += 1
        self.assertGreater(checked, 100)

    def test_the_pictures_are_there(self):
        self.browser.get(self.base + 'protocol.html')
        widths = self.attributes('article img', 'naturalWidth')
        self.assertGreaterEqual(len(widths), 2)
        self.assertNotIn(0, widths)

    def test_a_phone_shows_every_page_without_scrolling_sideways(self):
        self.width(PHONE)
        for page in self.pages:
            self.browser.get(self.base + page)
            self.assertEqual(self.browser.execute_script('return window.innerWidth'), PHONE)
            wide = self.browser.execute_script('return document.documentElement.scrollWidth')
            self.assertLessEqual(wide, PHONE, page)
            text = self.browser.find_element(By.CSS_SELECTOR, 'article p, article .manual')
            size = float(text.value_of_css_property('font-size').rstrip('px'))
            self.assertGreaterEqual(size, 14, page)

    def test_the_search_finds_a_page(self):
        self.width(1200)
        self.browser.get(self.base + 'index.html')
        self.browser.find_element(By.CSS_SELECTOR, '.md-search__input').send_keys('recovery')
        found = WebDriverWait(self.browser, DEADLINE).until(
            lambda b: b.find_elements(By.CSS_SELECTOR, '.md-search-result__link'))
        self.assertTrue(any('recovery.html' in link.get_attribute('href') for link in found))

    def test_the_navigation_leads_to_every_page(self):
        self.width(1200)
        self.browser.get(self.base + 'index.html')
        shown = {urllib.parse.urldefrag(link)[0].replace(self.base, '') or 'index.html'
                 for link in self.attributes('.md-nav--primary a[href]', 'href')}
        self.assertEqual(shown - {'.'}, set(self.pages))
        if SCREENSHOTS is not None:
            for name, pixels in (('desk', 1200), ('phone', PHONE)):
                self.width(pixels)
                self.browser.save_screenshot(str(SCREENSHOTS / (name + '.png')))


if __name__ == '__main__':
    SITE = pathlib.Path(sys.argv.pop(1)).resolve()
    if len(sys.argv) > 1 and not sys.argv[1].startswith('-'):
        SCREENSHOTS = pathlib.Path(sys.argv.pop(1))
    unittest.main()
