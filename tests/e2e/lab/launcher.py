"""Running Windows programs through the driver, and what came of it."""

import dataclasses
import itertools
import json
import os
import select
import subprocess
import time

from . import programs
from .server import LabError

POLL_SECONDS = 0.01
DRIVER_GRACE_SECONDS = 30  # on top of a run's own limit: the driver ends by itself, this catches a broken driver

# The buttons of the launcher's status window.
BUTTONS = {"update": 1001, "later": 1002, "notes": 1003, "cancel": 1004, "close": 1004, "reconnect": 1007}


def quote(argument):
    """Quotes one argument so that CommandLineToArgvW gives it back."""
    quoted, backslashes = '"', 0
    for char in argument:
        if char == "\\":
            backslashes += 1
            continue
        quoted += "\\" * (backslashes * 2 + 1 if char == '"' else backslashes) + char
        backslashes = 0
    return quoted + "\\" * backslashes * 2 + '"'


def command_line(*arguments):
    return " ".join(map(quote, arguments))


@dataclasses.dataclass(frozen=True)
class AppReport:
    """What the started application told about itself."""

    version: str
    path: str
    cwd: str
    args: list
    command_line: str
    dialog_answer: int
    pid: int


class Window:
    """One look at a window: `view` is dialog (a message box), or compact, prompt, progress, notice or failure (states of
    the status window; a notice passes by itself, a failure blocks)."""

    def __init__(self, event):
        self.view = event["view"]
        self.title = event["title"]
        self.place = event["place"]  # on the screen: left, top, right, bottom
        self.inside = event["inside"]  # the same without the frame
        self.controls = event["controls"]
        self.ms = event["ms"]
        self.look_before_ms = event["look_before_ms"]  # when this was not to be seen yet
        self.answer = event.get("answer")  # of those that wanted one: the script's word, or "none"
        self.expected = event.get("expected", True)

    @property
    def texts(self):
        """All visible texts that are not empty, in the order of the controls' creation."""
        return [control["text"] for control in self.controls if control["text"]]

    def is_enabled(self, button):
        number = BUTTONS.get(button, button)
        return any(control["id"] == number and control["enabled"] for control in self.controls)

    def control(self, button):
        """The visible control of that name or number, as the driver told it."""
        number = BUTTONS.get(button, button)
        return next((control for control in self.controls if control["id"] == number), None)

    def shows(self, text):
        return any(text in shown for shown in self.texts)

    def __repr__(self):
        answer = f", answered {self.answer}" if self.answer else ""
        return f"<{self.view} {self.title!r} {self.texts}{answer} at {self.ms:.0f} ms>"


@dataclasses.dataclass
class RunResult:
    exit_code: int  # all 32 bits
    elapsed: float  # seconds until the launcher ended
    job_elapsed: float  # seconds until the last process had ended
    timed_out: bool
    stopped: bool  # ended by LaunchHandle.kill
    started: bool
    start_error: int  # Windows error code if it could not be started
    dialogs: list  # Windows that wanted an answer, in order
    windows: list  # every look that differed from the one before
    answers_left: int
    app: AppReport | None  # None: no application was started
    requests: list  # what the servers received meanwhile
    output: bytes  # standard output and error of the launcher
    events: list  # all that the driver told, raw

    @property
    def unexpected(self):
        return [window for window in self.dialogs if not window.expected]

    def views(self):
        """The states of the status window in order, without repeats."""
        states = [window.view for window in self.windows if window.view != "dialog"]
        return [view for view, _ in itertools.groupby(states)]

    def __str__(self):
        lines = [f"exit code {self.exit_code} after {self.elapsed:.3f} s, timed out: {self.timed_out}, app: {self.app}"]
        lines += [f"  window   {window}" for window in self.windows]
        lines += [f"  answered {window}" for window in self.dialogs]
        lines += [f"  request  {request}" for request in self.requests]
        return "\n".join(lines)


class LaunchHandle:
    """A run that goes on while the test does other things."""

    def __init__(self, lab, folder, request, timeout, strict, unix_env):
        self._lab = lab
        self._folder = folder
        self._strict = strict
        self._deadline = time.monotonic() + timeout + DRIVER_GRACE_SECONDS
        self._first_request = len(lab.servers.requests)
        self._result = None
        (folder / "control").touch()
        (folder / "request").write_bytes("\0".join(request).encode("utf-8") + b"\0")
        arguments = [os.environ["WINE"], str(programs.DRIVER), lab.windows_path(folder / "request")]
        with open(folder / "driver.log", "wb") as log:
            self._process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                             env={**os.environ, **(unix_env or {})})

    # While it runs.

    @property
    def is_running(self):
        return self._process.poll() is None

    def kill(self):
        """Ends the launcher process, and only it, as a crash would; its exit code becomes 77. See wait()."""
        (self._folder / "stop").touch()

    def click(self, button):
        """Presses a button of the window that is open: a name of BUTTONS or a control number."""
        self._control(f"click {BUTTONS.get(button, button)}")

    def close_window(self):
        self._control("close")

    def press(self, key):
        """escape, enter, tab or space."""
        self._control(f"key {key}")

    def events(self):
        """What the driver told so far."""
        try:
            text = (self._folder / "events").read_text()
        except FileNotFoundError:
            return []
        return [json.loads(line) for line in text.splitlines(keepends=True) if line.endswith("\n")]

    def wait_for_window(self, view, timeout=30, match=lambda window: True):
        """The first Window of that view for which `match` is true."""
        def find():
            windows = [Window(event) for event in self.events() if event["event"] == "window"]
            return next((window for window in windows if window.view == view and match(window)), None)

        return self._await(find, timeout, f"a window in the view {view!r}")

    def wait_for_no_window(self, timeout=30):
        """Until a window that was seen is gone or hidden, and no other is there."""
        def find():
            return next((event for event in self.events() if event["event"] == "no window"), None)

        self._await(find, timeout, "the windows' end")

    def wait_for_app(self, timeout=30):
        """The application's report, as soon as it has written it."""
        return self._await(self._app_report, timeout, "the application's report")

    def wait_for_exit(self, timeout=30):
        """The launcher's exit code, also while its application still runs."""
        def find():
            return next((event for event in self.events() if event["event"] == "exit"), None)

        return self._await(find, timeout, "the launcher's end")["exit_code"]

    # Afterwards.

    def wait(self):
        """Waits for the launcher and everything it started; the RunResult."""
        if self._result is None:
            self._result = self._collect()
        if self._strict:
            self._judge(self._result)
        return self._result

    def end(self):
        """For the end of a test: nothing of this run stays alive."""
        if self.is_running:
            with open(self._folder / "control", "a") as control:
                control.write("end\n")
            if not self._wait_for_driver(DRIVER_GRACE_SECONDS):
                self._process.kill()
                raise LabError("the driver did not end")

    # Inside.

    def _control(self, line):
        before = sum(event["event"] == "control" for event in self.events())
        with open(self._folder / "control", "a") as control:
            control.write(line + "\n")

        def find():
            done = [event for event in self.events() if event["event"] == "control"]
            return done[before] if len(done) > before else None

        if not self._await(find, 30, f"the driver to obey {line!r}")["done"]:
            raise LabError(f"no open window could take {line!r}:\n{self.events()[-3:]}")

    def _await(self, find, timeout, what):
        deadline = time.monotonic() + timeout
        while True:
            running = self.is_running  # asked first: what came before the end is found all the same
            found = find()
            if found is not None:
                return found
            if not running or time.monotonic() > deadline:
                raise LabError(f"{what} did not come; told so far: {self.events()}")
            time.sleep(POLL_SECONDS)

    def _wait_for_driver(self, seconds):
        """Popen.wait with a limit looks every 50 ms only, which is as long as a whole run."""
        if self._process.poll() is not None:
            return True
        handle = os.pidfd_open(self._process.pid)
        try:
            ended, _, _ = select.select([handle], [], [], max(seconds, 0))
        finally:
            os.close(handle)
        return bool(ended)

    def _app_report(self):
        try:
            return AppReport(**json.loads((self._folder / "app.json").read_text(encoding="utf-8")))
        except FileNotFoundError:
            return None

    def _collect(self):
        if not self._wait_for_driver(self._deadline - time.monotonic()):
            raise LabError(f"the driver did not end; told so far: {self.events()}")
        status = self._process.wait()
        log = (self._folder / "driver.log").read_text(errors="replace")
        if status != 0:
            raise LabError(f"the driver failed with {status}: {log}")
        told = json.loads((self._folder / "result").read_text(encoding="utf-8"))
        events = told["events"]
        output = self._folder / "output"
        return RunResult(
            exit_code=told["exit_code"],
            elapsed=told["launcher_ms"] / 1000,
            job_elapsed=told["job_ms"] / 1000,
            timed_out=told["timed_out"],
            stopped=told["stopped"],
            started=told["started"],
            start_error=told["start_error"],
            dialogs=[Window(event) for event in events if event["event"] == "answer"],
            windows=[Window(event) for event in events if event["event"] == "window"],
            answers_left=told["answers_left"],
            app=self._app_report(),
            requests=self._lab.servers.requests[self._first_request :],
            output=output.read_bytes() if output.exists() else b"",
            events=events,
        )

    @staticmethod
    def _judge(result):
        faults = []
        if not result.started:
            faults.append(f"it could not be started, Windows error {result.start_error}")
        if result.timed_out:
            faults.append("it did not end in time")
        if result.unexpected:
            faults.append(f"windows without a fitting answer: {result.unexpected}")
        if faults:
            raise LabError("; ".join(faults) + f"\n{result}")


def make_request(lab, folder, exe, line, cwd, answers, timeout, env, poll_ms):
    """The driver's request, as its records."""
    def place(name):
        return lab.windows_path(folder / name)

    records = [f"exe={exe}", f"command_line={line}", f"cwd={cwd}", f"timeout_ms={int(timeout * 1000)}"]
    records += [f"poll_ms={poll_ms}", f"result={place('result')}", f"events={place('events')}"]
    records += [f"control={place('control')}", f"stop_file={place('stop')}", f"output={place('output')}"]
    records += [f"answer={answer}" for answer in answers]
    variables = {"VPR_SAMPLE_REPORT": place("app.json"), **(env or {})}
    records += [f"env={name}={value}" for name, value in variables.items()]
    if any("\0" in record for record in records):
        raise LabError("a request cannot hold a NUL")
    return records
