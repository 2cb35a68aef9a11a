"""Every call that changes a disk fails once, and every such call is the last one of its process, in turn.

The run replaces three plain files, one new, one changed and one changed and hidden, and two packages, one by a patch
and one whole, with two support files and an old version to remove, over real HTTPS. Whatever happened, the next start
must find the whole old or the whole new version, start it, and leave nothing behind; and the state of the packages must
name a set whose every member is whole. How many points there are is counted by the program under test, not written
here.
"""

import concurrent.futures
import json
import os
import re
import shutil

import pytest

from lab import APPLICATION_PATH, STATE, Package, Release, app_binary, content_of, install
from lab.install import APPLICATION_FOLDER
from lab.programs import BUILD

FAULT_LAUNCHER = BUILD / "tests/support/fault_launcher/fault_launcher.exe"
KILLED = 177
WORKERS = 4  # runs at once; each waits for its disk more than for the processor

HIDDEN = f"{APPLICATION_FOLDER}/JapaneseReading/aromanize.js"
NEW = f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme"
BEFORE, AFTER = "1.0.0.0", "1.1.0.0"

PACKS = f"{APPLICATION_FOLDER}/Runtime/packs"
RUNTIME_STATE = f"{APPLICATION_FOLDER}/Runtime/current.json"
# Versions that no state names are judged apart: which of them stand is nobody's business but the clean-up's.
OUTSIDE = (*STATE, PACKS, f"{PACKS}/*")
SUPPORT = ("VPRAsioProbe.exe", "Licenses/GPL-3.0.txt")

LOOK_EVERY_MS = 30
PAIRS_IN = 1 if os.environ.get("VPR_SWEEP") == "whole" else 8  # which share of the pairs of ends is tried

# Calls that can stop half-way; for all others "torn" is the same as "not made".
HAVE_HALVES = ("WriteFile", "CopyFileW", "fwrite")
# A half-written state file is replaced when the state is next written, which a start without a check does not do.
STATE_SIBLINGS = ("update-state.json.new", ".vpr-update/release-watermark.txt.new")
# The download cache sorts itself out when it is next used, which a start without an update does not do.
CACHE = ".vpr-update/downloads-v1/"


def runtime(version, patch_from=None):
    """Both support files change, one file stays and comes from the base of the patch."""
    files = {path: f"{path} {version}".encode() for path in SUPPORT} | {"core.dll": b"core" * 1000}
    return Package("application-runtime", version, files, "application-runtime", patch_from=patch_from)


def separation(version):
    return Package("uvr-mdx", version, {"model.onnx": f"model {version}".encode() * 50}, "uvr-mdx")


class Sweep:
    """Installations to break, one after the other, and the two states that may come out.

    unseen   without the status window, which stands for a while at the end of each run
    """

    def __init__(self, lab, unseen=True):
        self.lab = lab
        self.unseen = unseen
        self.packages = {BEFORE: [runtime(BEFORE), separation(BEFORE)]}
        self.packages[AFTER] = [runtime(AFTER, patch_from=self.packages[BEFORE][0]), separation(AFTER)]
        self.model = self._install("model")
        self.old = self.model.snapshot(exclude=OUTSIDE)
        Release(AFTER, {APPLICATION_PATH: app_binary(AFTER), HIDDEN: b"new reading", NEW: b"new theme"},
                packages=self.packages[AFTER]).publish(lab)
        updated = self._install("updated")
        result, _ = self.run(updated, "count")
        assert result.app.version == AFTER
        self.new = updated.snapshot(exclude=OUTSIDE)
        self.check_packages(updated, AFTER, "without a fault")
        assert not updated.path(f"{PACKS}/uvr-mdx/0.9.0.0").exists(), "the oldest version is removed"

    def _install(self, folder):
        packages = self.packages[BEFORE]
        support = {f"{APPLICATION_FOLDER}/{path}": packages[0].files[path] for path in SUPPORT}
        tree = install(self.lab, folder, launcher=FAULT_LAUNCHER, launcher_version="1.0.0.0", packages=packages,
                       reading={"aromanize.js": b"old reading"}, files=support)
        tree.add_packages(separation("0.9.0.0"), active=False)
        tree.hide(HIDDEN)
        return tree

    def check_packages(self, tree, version, what):
        """The set that the state of this version names is whole."""
        for package in self.packages[version]:
            folder = tree.path(f"{PACKS}/{package.id}/{package.version}")
            files = [path for path in folder.rglob("*") if path.is_file()]
            found = {path.relative_to(folder).as_posix(): path.read_bytes() for path in files}
            assert found == content_of(package), f"{what}: {package.id}"

    def fresh(self, name):
        return self._install(name)

    def run(self, tree, kind, at=0, args=()):
        """One run with one fault; (RunResult, what the program counted or None if it was killed)."""
        report = f"{tree.root.name}-report.json"
        env = {"VPR_FAULT_KIND": kind, "VPR_FAULT_AT": str(at), "VPR_FAULT_REPORT": self.lab.windows_path(self.lab.folder / report)}
        if self.unseen:
            env["VPR_FAULT_UNSEEN"] = "1"
        path = self.lab.folder / report
        path.unlink(missing_ok=True)
        # The prompt is answered; a stopped launch is read and closed. Neither need come, so nothing is strict here.
        # Looks are calls to the one Wine server, which is what many runs at once wait for.
        result = self.lab.run(tree, args, ["yes", "ok"], env=env, strict=False, poll_ms=LOOK_EVERY_MS)
        assert result.started and not result.timed_out, result
        return result, json.loads(path.read_text()) if path.exists() else None

    def points(self, kind):
        """Numbers of the calls at which this kind of fault means something of its own, counted by a run without any."""
        return points_of(kind, self.calls(self.fresh("count" + kind)))

    def calls(self, tree, args=()):
        """What a run without a fault counts."""
        _, told = self.run(tree, "count", args=args)
        return told["calls"]

    def check_next_start(self, tree, what):
        """The next start, without any fault: the claims of this file."""
        result, told = self.run(tree, "count")
        assert result.exit_code == 0, f"{what}: {result}"
        assert result.app is not None, f"{what}: nothing was started"
        found = tree.snapshot(exclude=OUTSIDE)
        if result.requests and found == self.new:
            version = AFTER  # this start may itself have updated the tree that it had restored
        else:
            version = AFTER if found == self.new else BEFORE
            assert found in (self.old, self.new), f"{what}: a mixed tree: {found}"
        assert result.app.version == version, what
        self.check_packages(tree, version, what)
        assert not leftovers(tree), f"{what}: {leftovers(tree)}"

    def check_without_update(self, tree, what):
        """A start that only settles and starts: what the interruption itself left, not what a new update made of it."""
        result, _ = self.run(tree, "count", args=["--skip-update-check"])
        assert result.exit_code == 0 and result.app is not None, f"{what}: {result}"
        found = tree.snapshot(exclude=[*OUTSIDE, *STATE_SIBLINGS])
        assert found in (self.old, self.new), f"{what}: a mixed tree: {found}"
        version = AFTER if found == self.new else BEFORE
        assert result.app.version == version, what
        self.check_packages(tree, version, what)
        left = [path for path in leftovers(tree) if path not in STATE_SIBLINGS and not path.startswith(PACKS)]
        assert not left, f"{what}: {left}"
        return found == self.new


def points_of(kind, calls):
    numbered = enumerate(calls, 1)
    return [number for number, (function, _) in numbered if not kind.endswith("torn") or function in HAVE_HALVES]


def leftovers(tree):
    return [path for path in tree.leftovers() if not path.startswith(CACHE)]


def in_parallel(work, items):
    """Runs `work` over the items, all of them even if some fail, and raises the first failure."""
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        futures = [pool.submit(work, item) for item in items]
        concurrent.futures.wait(futures)
        return [future.result() for future in futures]


@pytest.fixture
def sweep(lab):
    return Sweep(lab)


def discard(tree):
    shutil.rmtree(tree.root)


@pytest.mark.parametrize("kind", ["fail", "fail-torn"])
def test_any_call_that_fails(sweep, kind):
    points = sweep.points(kind)
    assert len(points) > (10 if kind.endswith("torn") else 100)

    def one(at):
        tree = sweep.fresh(f"{kind}{at}")
        result, told = sweep.run(tree, kind, at)
        assert told is not None and told["reached"], f"call {at} was never made"
        found = tree.snapshot(exclude=OUTSIDE)
        what = f"{kind} at call {at}, {told['calls'][at - 1]}"
        if result.app is not None:
            # Whatever was started after a failure is a whole version, and the one that the tree holds.
            assert without_leftovers(tree, found) in (sweep.old, sweep.new), f"{what}: started a mixed tree: {found}"
            assert result.app.version == tree.application_version(), what
            sweep.check_packages(tree, result.app.version, what)
        if result.app is None or leftovers(tree):
            sweep.check_without_update(tree, what)  # something is to be settled
        sweep.check_next_start(tree, what)
        discard(tree)

    in_parallel(one, points)
    print(f"\n{kind}: {len(points)} points")


def without_leftovers(tree, snapshot):
    left = set(leftovers(tree))
    return {path: facts for path, facts in snapshot.items() if path not in left}


@pytest.mark.parametrize("kind", ["kill", "kill-torn"])
def test_process_that_ends_at_any_call(lab, kind):
    sweep = Sweep(lab, unseen=kind.endswith("torn"))  # once as users have it, with the window
    points = sweep.points(kind)

    def one(at):
        tree = sweep.fresh(f"{kind}{at}")
        result, _ = sweep.run(tree, kind, at)
        assert result.exit_code == KILLED, f"call {at} was never made: {result}"
        is_new = sweep.check_without_update(tree, f"{kind} at call {at}")
        sweep.check_next_start(tree, f"{kind} at call {at}")
        discard(tree)
        return is_new

    outcomes = in_parallel(one, points)
    print(f"\n{kind}: {len(points)} points, of which {sum(outcomes)} left the new version")
    # One commit point: everything before it leaves the old version, everything behind it the new one.
    assert outcomes == sorted(outcomes)
    assert 0 < sum(outcomes) < len(points)


def test_process_that_ends_again_during_the_recovery(sweep):
    """For every point at which the first run leaves something to settle: the settling start ends at its own calls, once
    as it is and once half done, and the start after that finishes the work. Each first end meets one in PAIRS_IN of the
    second ones, in turns, so that each second one is met behind many first ones; VPR_SWEEP=whole takes all pairs."""
    def begin(at):
        """One first interruption, kept for all the second ones."""
        tree = sweep.fresh(f"first{at}")
        sweep.run(tree, "kill", at)
        kept = sweep.lab.folder / f"kept{at}"
        if any(not path.startswith(PACKS) for path in leftovers(tree)):
            shutil.copytree(tree.root, kept, symlinks=True)
        discard(tree)
        return kept

    def reopen(kept, name):
        tree = type(sweep.model)(sweep.lab.folder / name, sweep.lab.drive)
        shutil.copytree(kept, tree.root, symlinks=True)
        return tree

    def second_points(kept):
        tree = reopen(kept, f"{kept.name}-count")
        calls = sweep.calls(tree, ["--skip-update-check"])
        discard(tree)
        return [(kept, kind, second) for kind in ("kill", "kill-torn") for second in points_of(kind, calls)]

    def one(item):
        kept, kind, second = item
        tree = reopen(kept, f"{kept.name}-{kind}-{second}")
        what = f"{kept.name}, then {kind} at call {second} of the recovery"
        result, _ = sweep.run(tree, kind, second, ["--skip-update-check"])
        assert result.exit_code == KILLED, f"{what}: never made: {result}"
        sweep.check_without_update(tree, what)
        discard(tree)

    firsts = distinct(in_parallel(begin, sweep.points("kill")))
    pairs = in_parallel(second_points, firsts)
    items = [item for turn, of_one in enumerate(pairs) for item in of_one[turn % PAIRS_IN :: PAIRS_IN]]
    in_parallel(one, items)
    print(f"\nsecond kill: {len(items)} points over {len(firsts)} interruptions, one in {PAIRS_IN} of all")
    assert len(items) > 100


def distinct(kept_folders):
    """Interruptions that leave different things to settle: neighbours that left the very same files are one."""
    chosen, previous = [], None
    for kept in kept_folders:
        # The run's own folders are named after its process and time, which say nothing about what is in them.
        facts = {re.sub(r"-\d+-\d+(?=/|$)", "", path.relative_to(kept).as_posix()): path.read_bytes()
                 for path in kept.rglob("*")
                 if path.is_file() and path.name != "transaction.json" and CACHE not in path.as_posix()
                 and PACKS not in path.as_posix()}  # a recovery does not look at versions
        facts["journal"] = (kept / ".vpr-update/transaction.json").exists()
        if kept.exists() and facts != previous:
            chosen.append(kept)
        previous = facts
    return chosen
