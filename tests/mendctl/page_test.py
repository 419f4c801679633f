#!/usr/bin/python3
"""Opens the page of tests/mendctl/update.log in a browser and uses it as support staff do.

usage: page_test.py PAGE.html [PICTURE.png]

With PICTURE, takes a picture of the page with a failure chosen. Needs Debian's chromium, chromium-driver and
python3-selenium.
"""
import json
import pathlib
import sys
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

URL = pathlib.Path(sys.argv[1]).resolve().as_uri()
MARKUP = "</script><script>document.title = 'no'</script><!-- & <b>Notes</b>"


def check(expected, got, what):
    assert expected == got, f'{what}: {expected!r} expected, {got!r} got'


options = webdriver.ChromeOptions()
for argument in ('--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--hide-scrollbars'):
    options.add_argument(argument)
options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
browser = webdriver.Chrome(options=options, service=Service('/usr/bin/chromedriver'))
all_of = lambda selector: browser.find_elements(By.CSS_SELECTOR, selector)
one = lambda selector: browser.find_element(By.CSS_SELECTOR, selector)
rows = lambda: [row.text.split('\n')[1 if row.text[:1] in '▶▼' else 0] for row in all_of('[role="treeitem"] > .row')]


def status(expected):
    for _ in range(50):  # a search waits for the end of the typing
        if one('#status').text.split('.')[0] == expected:
            return
        time.sleep(0.1)
    check(expected, one('#status').text, 'status')


def found():
    """The rows that match, without those around them."""
    return len(all_of('[role="treeitem"].call:not(.around)')) + len(all_of('[role="treeitem"].note'))


try:
    browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride',
                            {'width': 1280, 'height': 800, 'deviceScaleFactor': 1, 'mobile': False})
    browser.get(URL)
    title = browser.title
    check('3 processes, 320 lines, 165 calls, 4 failures', one('#summary').text, 'summary')
    check((3, 4, 3), tuple(map(len, map(all_of, ('.lane', '.failure', '.bar.failed')))), 'lanes, failures, failed bars')
    check(19, len(rows()), 'rows of the processes and the outermost calls')

    one('.process .call .fold').click()
    check('UHistory.CheckBkp', rows()[2], 'the row that opened')
    for key, count in ((Keys.ARROW_LEFT, 19), (Keys.ARROW_RIGHT, 20), (Keys.ARROW_LEFT, 19), (Keys.HOME, 19),
                       (Keys.ARROW_LEFT, 9)):
        browser.switch_to.active_element.send_keys(key)
        check(count, len(rows()), 'rows after a key')

    one('#search').send_keys('RestoreString {5a6d')
    status('1 of 165 calls match')
    check((1, 1), (found(), len(all_of('.call.around .call.around .call:not(.around)'))), 'what the search leaves')
    one('#search').send_keys(Keys.CONTROL, 'a')
    one('#search').send_keys('<script>')
    status('2 of 165 calls match')
    one('#search').send_keys(Keys.ENTER)
    assert MARKUP in one('#details').text and MARKUP in one('[aria-selected="true"] > .row').text, 'markup is text'
    check((title, 2, 0), (browser.title, len(all_of('script')), len(all_of('main b'))), 'title, scripts, bold texts')
    one('#clear').click()
    status('165 calls')

    for selector, text, count in (('#process', 'Process 2', 45), ('#class', 'UGarbage', 3), ('#process', 'All', 3),
                                  ('#class', 'All', 165)):
        next(each for each in all_of(selector + ' option') if each.text.startswith(text)).click()
        status(f'{count} of 165 calls match' if count < 165 else '165 calls')
        assert count > 3 or found() == count, 'only these are there'
    one('#only-failures').click()
    status('9 of 165 calls match')
    check((9, 9), (found(), len(all_of('[role="treeitem"].failed'))), 'failed calls')

    all_of('.failure')[1].click()
    check('RetryGetFileAttributes', one('[aria-selected="true"] .what').text, 'the chosen call')
    for text in ('Error 2: File not found.', 'Answered: Cancel', 'in UFile.CopyFileLogged › UFile.CopySomeFile',
                 '\\help\\Übersicht.txt'):
        assert text in one('#details').text, text
    one('#clear').click()
    all_of('.failure')[1].click()
    if len(sys.argv) > 2:
        browser.save_screenshot(sys.argv[2])
    paper = lambda: one('body').value_of_css_property('background-color')
    light = paper()
    browser.execute_cdp_cmd('Emulation.setEmulatedMedia',
                            {'features': [{'name': 'prefers-color-scheme', 'value': 'dark'}]})
    assert light != paper(), 'there is a dark form'

    check([], browser.get_log('browser'), 'what the browser complains about')
    events = [json.loads(entry['message'])['message'] for entry in browser.get_log('performance')]
    asked = [event['params']['request']['url'] for event in events if event['method'] == 'Network.requestWillBeSent']
    check([URL], [url for url in asked if not url.startswith('data:')], 'what was loaded')
finally:
    browser.quit()
