# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? docs
#?     make the pages as a site with navigation and search: build/site/site

takes_nothing "$@"
need python site
python3 docs/make_site.py build/site || die "the site cannot be made"
say "the site is build/site/site; its search needs a server: python3 -m http.server -d build/site/site"
