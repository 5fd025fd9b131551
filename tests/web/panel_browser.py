#!/usr/bin/env python3
"""The controller's panel in headless Chromium: a program drawn on the
display, its touch page pressed with the mouse, an input forced from the page,
its end with the exit code, the page finding a restarted controller and the
camera's picture.

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
RUN = shlex.split(os.environ.get("KAVRI_RUN_PREFIX", ""))
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
        if condition():
            return
        time.sleep(0.1)
    raise AssertionError(f"timed out after {seconds} s waiting for {what}")


def require(what, condition):
    if not condition:
        raise AssertionError(what)


class Controller:
    """kavri-host with its panel, on PC link ports that a parallel test may
    take first: then it is started again elsewhere."""

    def __init__(self, host, work):
        self.host, self.work, self.process = host, work, None
        self.log_path = os.path.join(work, "host.log")

    def start(self, web_port=0):
        for _ in range(20):
            self.port = random.randrange(20000, 32000, 2)
            with open(self.log_path, "w") as log:
                self.process = subprocess.Popen(
                    RUN + [self.host, "--port", str(self.port), "--camera-port", str(self.port + 1),
                           "--programs", os.path.join(self.work, "programs"), "--web", str(web_port)],
                    stdout=log, stderr=subprocess.STDOUT)
            deadline = time.monotonic() + WAIT
            while time.monotonic() < deadline and self.process.poll() is None:
                panel = re.search(r"panel on (http://\S+/)", self.log())
                if panel and f"PC link on port {self.port}" in self.log():
                    self.url = panel.group(1)
                    return
                time.sleep(0.1)
            self.stop()
        raise AssertionError("the controller did not start:\n" + self.log())

    def restart(self):
        port = int(re.search(r":(\d+)/$", self.url).group(1))
        self.stop()
        return lambda: self.start(web_port=port)

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


def browser():
    options = webdriver.ChromeOptions()
    for flag in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1400,1100"):
        options.add_argument(flag)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def main():
    parser = argparse.ArgumentParser()
    for name in ("--host", "--pc", "--program", "--camera-program"):
        parser.add_argument(name, required=True)
    parser.add_argument("--screenshot")
    args = parser.parse_args()
    passed, failed = 0, 0

    with tempfile.TemporaryDirectory() as work:
        controller = Controller(args.host, work)
        driver = None

        def pc(*command):
            done = subprocess.run(RUN + [args.pc, "--port", str(controller.port), "--timeout", "60", *command],
                                  capture_output=True, text=True, timeout=300)
            require(f"kavri-pc {' '.join(command)} failed:\n{done.stdout}{done.stderr}", done.returncode == 0)

        text = lambda element_id: driver.find_element(By.ID, element_id).text
        frame = lambda: driver.find_element(By.ID, "display").get_attribute("data-frame") or ""
        element = lambda element_id: driver.find_element(By.ID, element_id)
        shown = lambda element_id, value: (f"{element_id} to show {value}", lambda: text(element_id) == value)
        seen = {}

        def tap(point):
            """A mouse press and release at a screen point; offsets count from the canvas's centre."""
            ActionChains(driver).move_to_element_with_offset(
                element("screen"), point[0] - SCREEN_W // 2, point[1] - SCREEN_H // 2).click().perform()

        def frame_noted():
            seen["frame"] = frame()

        frame_changed = ("the display to change", lambda: frame() not in ("", seen["frame"]))

        def screenshot():
            time.sleep(0.5)  # the screen's picture follows its change count
            require("no screenshot written", not args.screenshot or driver.save_screenshot(args.screenshot))

        # Each check: its name, whether it needs the first to have passed, and
        # its steps, an action or a (what, condition) pair to wait for.
        checks = [
            ("the display picture changes when the program draws", False, [
                lambda: pc("run", image, "--name", "counter"), shown("program-running", "yes"), frame_changed,
                shown("program-name", "counter")]),
            ("a widget button pressed in the browser changes what the program shows", True, [
                ("the touch page on the screen", lambda: int(element("screen").get_attribute("data-changes") or 0)),
                frame_noted, lambda: tap(COUNT_BUTTON), frame_changed]),
            ("a forced input is seen by the program (and the page's picture written)", True, [
                frame_noted, lambda: element("force-1").send_keys("512", Keys.TAB), shown("input-1", "512"),
                # The program copies input 1 to output 2 and shows it.
                shown("output-2", "512"), frame_changed, screenshot, lambda: element("release-1").click(),
                shown("input-1", "0")]),
            ("the program's end shows with its exit code", True, [
                lambda: tap(END_BUTTON), shown("exit-code", END_CODE), shown("program-running", "no"),
                lambda: require("the log lacks the end", f"Program terminated with code {END_CODE}" in text("log"))]),
            ("the page reconnects to a restarted controller", False, [
                lambda: seen.update(start=controller.restart()), ("the page to notice", lambda: text("conn") != "connected"),
                lambda: seen["start"](), shown("conn", "connected"),
                ("the new controller's log", lambda: "KavriLib V" in text("log"))]),
            # On the fresh controller: the first one has already run a program.
            ("the camera's picture shows while a program captures", False, [
                lambda: pc("build", args.camera_program, "-o", os.path.join(work, "camera.img")),
                lambda: pc("run", os.path.join(work, "camera.img"), "--ram"),
                ("the camera's rate", lambda: "frames/s" in text("camera-rate")),
                ("a camera picture", lambda: driver.execute_script(
                    "return document.getElementById('camera').naturalWidth") == 320),
                lambda: pc("stop")]),
        ]
        try:
            controller.start()
            image = os.path.join(work, "counter.img")
            pc("build", args.program, "-o", image)
            driver = browser()
            driver.get(controller.url)
            wait_until(*shown("conn", "connected"))
            wait_until("the first display frame", frame)
            frame_noted()
            first_passed = None
            for name, needs_first, steps in checks:
                if needs_first and not first_passed:
                    continue
                try:
                    for step in steps:
                        wait_until(*step) if isinstance(step, tuple) else step()
                    print(f"ok: {name}", flush=True)
                    passed += 1
                except Exception as error:  # a failed check is reported, the next ones still run
                    print(f"FAILED: {name}: {error}", flush=True)
                    failed += 1
                first_passed = first_passed if first_passed is not None else passed == 1
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
