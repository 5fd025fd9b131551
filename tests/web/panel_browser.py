#!/usr/bin/env python3
"""The controller's panel in headless Chromium: a program drawn on the
display, its touch page pressed with the mouse, an input forced from the page,
its end with the exit code, and the page finding a restarted controller.

Usage: panel_browser.py --host KAVRI_HOST --pc KAVRI_PC --program SOURCE.c
                        --camera-program SOURCE.c [--screenshot PNG]
KAVRI_RUN_PREFIX (the emulator's command line) runs both programs."""
import argparse
import os
import random
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

WAIT = 60  # seconds; the controller runs under an emulator on a shared machine
SCREEN_W, SCREEN_H = 240, 320


def page_to_screen(x, y):
    """A point of a touch page (128 x 64 units) on the 240 x 320 screen."""
    return (x * 15) >> 3, 64 + y * 4


# TouchCounter.c's buttons: "Count" at (8, 8, 112, 20), "End" at (8, 36, 112, 20).
COUNT_BUTTON = page_to_screen(8 + 56, 8 + 10)
END_BUTTON = page_to_screen(8 + 56, 36 + 10)
END_CODE = "7"


def wait_until(what, condition, seconds=WAIT):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.1)
    raise AssertionError(f"timed out after {seconds} s waiting for {what}")


class Controller:
    """kavri-host with its panel on a free port, on PC link ports that a
    parallel test may take first: then it is started again elsewhere."""

    def __init__(self, host, work):
        self.host, self.work, self.process = host, work, None
        self.log_path = os.path.join(work, "host.log")

    def start(self, web_port=0):
        run = shlex.split(os.environ.get("KAVRI_RUN_PREFIX", ""))
        for _ in range(20):
            self.port = random.randrange(20000, 32000, 2)
            with open(self.log_path, "w") as log:
                self.process = subprocess.Popen(
                    run + [self.host, "--port", str(self.port), "--camera-port", str(self.port + 1),
                           "--programs", os.path.join(self.work, "programs"), "--web", str(web_port)],
                    stdout=log, stderr=subprocess.STDOUT)
            deadline = time.monotonic() + WAIT
            while time.monotonic() < deadline and self.process.poll() is None:
                text = self.log()
                panel = re.search(r"panel on (http://\S+/)", text)
                if panel and f"PC link on port {self.port}" in text:
                    self.url = panel.group(1)
                    return
                time.sleep(0.1)
            self.stop()
        raise AssertionError("the controller did not start:\n" + self.log())

    def log(self):
        with open(self.log_path, errors="replace") as log:
            return log.read()

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(WAIT)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


def pc(args, controller, *command):
    run = shlex.split(os.environ.get("KAVRI_RUN_PREFIX", ""))
    done = subprocess.run(run + [args.pc, "--port", str(controller.port), "--timeout", "60", *command],
                          capture_output=True, text=True, timeout=300)
    if done.returncode != 0:
        raise AssertionError(f"kavri-pc {' '.join(command)} failed:\n{done.stdout}{done.stderr}")
    return done.stdout


def browser():
    options = webdriver.ChromeOptions()
    for flag in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1400,1100"):
        options.add_argument(flag)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def text_of(driver, element_id):
    return driver.find_element(By.ID, element_id).text


def display_frame(driver):
    return driver.find_element(By.ID, "display").get_attribute("data-frame") or ""


def tap(driver, point):
    """A mouse press and release at a screen point of the touch canvas."""
    canvas = driver.find_element(By.ID, "screen")
    # Offsets count from the element's centre; the canvas shows the screen 1:1.
    ActionChains(driver).move_to_element_with_offset(
        canvas, point[0] - SCREEN_W // 2, point[1] - SCREEN_H // 2).click().perform()


def main():
    parser = argparse.ArgumentParser()
    for name in ("--host", "--pc", "--program", "--camera-program"):
        parser.add_argument(name, required=True)
    parser.add_argument("--screenshot")
    args = parser.parse_args()

    passed, failed = 0, 0

    def check(name, step):
        nonlocal passed, failed
        try:
            step()
            print(f"ok: {name}", flush=True)
            passed += 1
            return True
        except Exception as error:  # a failed check is reported, the next ones still run
            print(f"FAILED: {name}: {error}", flush=True)
            failed += 1
            return False

    with tempfile.TemporaryDirectory() as work:
        controller = Controller(args.host, work)
        driver = None
        try:
            controller.start()
            image = os.path.join(work, "counter.img")
            pc(args, controller, "build", args.program, "-o", image)
            driver = browser()
            driver.get(controller.url)
            wait_until("the page to connect", lambda: text_of(driver, "conn") == "connected")
            blank = wait_until("the first display frame", lambda: display_frame(driver))

            def program_draws():
                pc(args, controller, "run", image, "--name", "counter")
                wait_until("the program to run", lambda: text_of(driver, "program-running") == "yes")
                wait_until("the display to change", lambda: display_frame(driver) not in ("", blank))
                wait_until("the program's name", lambda: text_of(driver, "program-name") == "counter")

            def button_changes_display():
                wait_until("the touch page on the screen", lambda: int(
                    driver.find_element(By.ID, "screen").get_attribute("data-changes") or 0) > 0)
                before = display_frame(driver)
                tap(driver, COUNT_BUTTON)
                wait_until("the count to change the display", lambda: display_frame(driver) != before)

            def forced_input_seen():
                before = display_frame(driver)
                driver.find_element(By.ID, "force-1").send_keys("512", Keys.TAB)
                wait_until("input 1 forced", lambda: text_of(driver, "input-1") == "512")
                # The program copies input 1 to output 2 and shows it.
                wait_until("the program to take the input", lambda: text_of(driver, "output-2") == "512")
                wait_until("the input on the display", lambda: display_frame(driver) != before)
                time.sleep(0.5)  # the screen's picture follows its change count
                if args.screenshot and not driver.save_screenshot(args.screenshot):
                    raise AssertionError("no screenshot written")
                driver.find_element(By.ID, "release-1").click()
                wait_until("input 1 back to the hardware", lambda: text_of(driver, "input-1") == "0")

            def end_shows_code():
                tap(driver, END_BUTTON)
                wait_until("the exit code", lambda: text_of(driver, "exit-code") == END_CODE)
                wait_until("the program to stop", lambda: text_of(driver, "program-running") == "no")
                log = text_of(driver, "log")
                if f"Program terminated with code {END_CODE}" not in log:
                    raise AssertionError("the log lacks the end: " + log[-400:])

            def camera_shows():
                camera_image = os.path.join(work, "camera.img")
                pc(args, controller, "build", args.camera_program, "-o", camera_image)
                pc(args, controller, "run", camera_image, "--ram")
                wait_until("the camera's rate", lambda: "frames/s" in text_of(driver, "camera-rate"))
                wait_until("a camera picture", lambda: driver.execute_script(
                    "return document.getElementById('camera').naturalWidth") == 320)
                pc(args, controller, "stop")

            def bad_requests_leave_the_link_alone():
                statuses = driver.execute_async_script("""
                    const done = arguments[arguments.length - 1];
                    Promise.all([
                      fetch('/touch?kind=press&x=nan&y=1', {method: 'POST'}),
                      fetch('/input?channel=99&value=1', {method: 'POST'}),
                      fetch('/touch?kind=press&x=1&y=1', {method: 'POST', body: 'x'.repeat(100000)}),
                      fetch('/no/such/page'),
                    ].map(p => p.then(r => r.status, () => 0))).then(done);""")
                if statuses[:2] != [400, 404] or statuses[3] != 404 or statuses[2] not in (0, 413):
                    raise AssertionError(f"statuses {statuses}")
                pc(args, controller, "status")  # fails the check unless the link answers

            def reconnects_after_restart():
                port = int(re.search(r":(\d+)/$", controller.url).group(1))
                controller.stop()
                wait_until("the page to notice", lambda: text_of(driver, "conn") != "connected")
                controller.start(web_port=port)
                wait_until("the page to reconnect", lambda: text_of(driver, "conn") == "connected")
                wait_until("the new controller's log", lambda: "KavriLib V" in text_of(driver, "log"))

            if check("the display picture changes when the program draws", program_draws):
                check("a widget button pressed in the browser changes what the program shows", button_changes_display)
                check("a forced input is seen by the program (and the page's picture written)", forced_input_seen)
                check("the program's end shows with its exit code", end_shows_code)
            check("bad requests get errors and the PC link still answers", bad_requests_leave_the_link_alone)
            check("the page reconnects to a restarted controller", reconnects_after_restart)
            # On the fresh controller: the first one has already run a program.
            check("the camera's picture shows while a program captures", camera_shows)
        except Exception as error:
            print(f"FAILED: setting up: {error}", flush=True)
            failed += 1
        finally:
            if driver:
                driver.quit()
            controller.stop()
            if failed:
                print(controller.log()[-4000:])
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
