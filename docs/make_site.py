#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Makes the pages as a site with navigation and search.

usage: make_site.py OUT

OUT/pages gets the pages as mkdocs wants them: all in one folder, without links to sources; OUT/site
gets what mkdocs makes of them.
'''

import json
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Which page stands where; those that are not named here follow in a section of their own.
SECTIONS = {
    'Use': ['README.md', 'docs/bbpsim.md', 'docs/output.md', 'docs/recovery.md',
            'docs/embedded.md', 'docs/fleet.md', 'docs/lab.md'],
    'Understand': ['docs/architecture.md', 'docs/protocol.md', 'docs/performance.md',
                   'docs/glossary.md'],
    'Change': ['CONTRIBUTING.md', 'docs/testing.md', 'docs/porting.md'],
    'Project': ['CHANGELOG.md', 'SECURITY.md'],
}
THEME = {'name': 'material', 'font': False, 'features': ['navigation.sections', 'navigation.top']}
# Wide tables and listings scroll in themselves; a page never does, on a phone either.
STYLE = '.md-typeset .manual { overflow-x: auto; }\n.md-typeset code { overflow-wrap: anywhere; }\n'


def place(page):
    '''Where a page of the sources stands among the site's.'''
    return 'index.md' if page == ROOT / 'README.md' else page.name


def with_links(text, page, pages):
    '''The page's text with links that hold on the site; what is linked in the sources is text.'''
    def link(found):
        label, target = found[1], found[2]
        if re.match(r'[a-z]+:|#', target):
            return found[0]
        path, hash_sign, anchor = target.partition('#')
        path = (page.parent / path).resolve()
        if path in pages:
            return '[%s](%s%s%s)' % (label, place(path), hash_sign, anchor)
        if path.parent == ROOT / 'docs' / 'images':
            return '[%s](images/%s)' % (label, path.name)
        return label
    return re.sub(r'\[([^\]]*)\]\(([^)\s]+)\)', link, text)


def manual(source, out):
    '''Writes a manual page as a page of the site.'''
    html = subprocess.run(['mandoc', '-T', 'html', '-O', 'fragment', source],
                          check=True, capture_output=True, text=True).stdout
    html = re.sub(r'<table class="(head|foot)">.*?</table>', '', html, flags=re.DOTALL)
    html = re.sub(r'\n\s*\n', '\n', html)
    out.write_text('# %s\n\n<div class="manual">\n%s\n</div>\n' % (source.stem, html))


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    out = pathlib.Path(sys.argv[1]).resolve()
    staged = out / 'pages'
    shutil.rmtree(out, ignore_errors=True)
    staged.mkdir(parents=True)
    shutil.copytree(ROOT / 'docs' / 'images', staged / 'images')
    (staged / 'site.css').write_text(STYLE)

    named = [ROOT / page for pages in SECTIONS.values() for page in pages]
    others = [page for page in sorted((ROOT / 'docs').glob('*.md')) if page not in named]
    for page in named + others:
        (staged / place(page)).write_text(with_links(page.read_text(), page, named + others))
    manuals = sorted((ROOT / 'docs' / 'man').glob('*.1'))
    for source in manuals:
        manual(source, staged / (source.stem + '.1.md'))

    navigation = [{section: [place(ROOT / page) for page in pages]}
                  for section, pages in SECTIONS.items()]
    if others:
        navigation.append({'More': [place(page) for page in others]})
    navigation.append({'Manual pages': [{m.stem: m.stem + '.1.md'} for m in manuals]})
    configuration = {
        'site_name': 'bbpflash', 'docs_dir': str(staged), 'site_dir': str(out / 'site'),
        'theme': THEME, 'nav': navigation, 'plugins': ['search'], 'extra_css': ['site.css'],
        'use_directory_urls': False,
        'markdown_extensions': ['tables', 'fenced_code', {'toc': {'permalink': True}}]}
    # JSON is YAML.
    (out / 'mkdocs.yml').write_text(json.dumps(configuration, indent=1))
    subprocess.run(['mkdocs', '--quiet', 'build', '--strict', '--config-file', out / 'mkdocs.yml'],
                   check=True)


if __name__ == '__main__':
    main()
