"""The launcher's own part: command line, settings, interrupted updates, the start of the application, exit codes."""

import pytest

from lab import APPLICATION_PATH, STATE, app_binary, configuration_text, install, names, quote, update
from lab.install import APPLICATION_FOLDER, PROGRAM_NAME

REPLACE = "--install-launcher-update"


def stopped_with(result, code, text):
    """The launch was stopped with this exit code and a message that holds this text, and nothing was started."""
    assert result.exit_code == code
    assert result.app is None
    [dialog] = result.dialogs
    assert dialog.title == "Velmora Pine Relay"
    assert dialog.shows("Update recovery needs attention. Launch stopped.")
    assert dialog.shows(text), dialog.texts


@pytest.mark.parametrize(
    "arguments",
    [
        [],
        ["plain"],
        ["", "a b", "tab\there"],
        ['say "hi"', '"', '\\"', 'a\\\\"b c"'],
        ["C:\\folder with blank\\", "\\\\server\\share\\", "trailing\\\\"],
        ["日本語", "한국어", "é", "中文 檔案.wav"],
        ["--unknown", "--check-for-update", "--CHECK-FOR-UPDATES", "--launcher-none-self-test"],
        [REPLACE, "a", "b", "c"],
    ],
)
def test_unknown_arguments_reach_the_application_unchanged(lab, tree, arguments):
    result = lab.run(tree, ["--skip-update-check", *arguments])
    assert result.exit_code == 0
    assert result.app.args == arguments
    assert result.app.command_line == " ".join(map(quote, [result.app.path, *arguments]))


def test_own_switches_are_not_forwarded(lab, tree):
    update("1.0.0.0").publish(lab)
    result = lab.run(tree, ["one", "--check-for-updates", "two", "--check-for-updates"])
    assert result.app.args == ["one", "two"]


def test_skip_wins_over_a_forced_check(lab, tree):
    update().publish(lab)
    result = lab.run(tree, ["--skip-update-check", "--check-for-updates"])
    assert result.exit_code == 0 and result.app.version == "1.0.0.0"
    assert lab.requests == []


def test_forced_check_without_a_location_starts_at_once(lab):
    tree = install(lab, manifest_url="")
    result = lab.run(tree, ["--check-for-updates"])
    assert result.exit_code == 0 and result.app.version == "1.0.0.0"
    assert lab.requests == [] and result.dialogs == []


def test_missing_settings_are_rebuilt_and_the_check_runs(lab):
    tree = install(lab, configuration=False)
    update().publish(lab)
    result = lab.run(tree, answers=["yes"])
    assert result.exit_code == 0 and result.app.version == "1.1.0.0"
    assert tree.configuration.read_text() == configuration_text("1.1.0.0", "1.0.0.0")
    tree.assert_no_leftovers()


def test_rebuilt_settings_are_exactly_as_written_by_an_installer(lab):
    tree = install(lab, configuration=False)
    lab.run(tree, ["--skip-update-check"])
    assert tree.configuration.read_bytes() == configuration_text("1.0.0.0", "1.0.0.0").encode()


def test_missing_settings_that_cannot_be_rebuilt_stop_the_launch(lab):
    tree = install(lab, configuration=False, application=b"no program at all")
    stopped_with(lab.run(tree, answers=["ok"]), 3, "current.json 遺失，且無法從現有程式重建版本資訊。")


@pytest.mark.parametrize(
    "text, message",
    [
        (b"", "current.json 為空、過大或讀取失敗。"),
        (b"x" * 65537, "current.json 為空、過大或讀取失敗。"),
        (b"\xff{}", "current.json 不是有效的 UTF-8。"),
        (b"{}", "current.json 缺少必要欄位或使用不支援的格式。"),
        (configuration_text("1.0.0.0", "1.0.0.0", executable="sub/a.exe"), "current.json 包含不安全的程式路徑。"),
        (configuration_text("1.0.0.0", "1.0.0.0", directory="../outside"), "current.json 包含不安全的程式路徑。"),
    ],
)
def test_unusable_settings_stop_the_launch(lab, text, message):
    tree = install(lab, configuration=text)
    before = tree.snapshot()
    stopped_with(lab.run(tree, answers=["ok"]), 3, message)
    assert tree.snapshot() == before


def test_settings_that_are_a_folder_stop_the_launch(lab):
    tree = install(lab, configuration=False)
    tree.configuration.mkdir()
    stopped_with(lab.run(tree, answers=["ok"]), 3, "無法讀取 current.json。")


def test_missing_application_stops_the_launch(lab, tree):
    tree.application.unlink()
    result = lab.run(tree, ["--skip-update-check"], ["ok"])
    stopped_with(result, 4, "找不到主程式：\n" + tree.windows(APPLICATION_PATH))


def test_application_that_is_a_folder_stops_the_launch(lab, tree):
    tree.application.unlink()
    tree.application.mkdir()
    stopped_with(lab.run(tree, ["--skip-update-check"], ["ok"]), 4, "找不到主程式：\n")


def test_application_that_cannot_start_exits_with_windows_error_code(lab):
    tree = install(lab, application=b"no program at all")
    result = lab.run(tree, ["--skip-update-check"], ["ok"])
    path = tree.windows(APPLICATION_PATH)
    stopped_with(result, 193, f"Failed to start the app (error code 193):\n{path}")


def test_application_in_a_folder_of_its_own_choice(lab):
    text = configuration_text("1.0.0.0", "1.0.0.0", manifest_url="", directory="Sub Folder/App", executable="start.exe")
    tree = install(lab, configuration=text, files={"Sub Folder/App/start.exe": app_binary("3.0.0.0")})
    result = lab.run(tree)
    assert result.app.version == "3.0.0.0"
    assert result.app.cwd == tree.windows("Sub Folder/App")


def test_replacement_is_refused_without_touching_anything(lab):
    """No launcher puts itself over itself."""
    tree = install(lab, configuration=False)
    before = tree.snapshot()
    result = lab.run(tree, [REPLACE, tree.windows(PROGRAM_NAME), tree.windows("current.json"), "1.0.0.0", "a" * 64])
    assert result.exit_code == 40 and result.app is None
    assert tree.snapshot() == before, "a missing current.json must not be made anew by a run that replaces the launcher"


def test_incomplete_replacement_runs_from_the_defaults(lab):
    tree = install(lab, configuration=False)
    result = lab.run(tree, [REPLACE, "a", "b", "c"])
    assert result.exit_code == 0
    assert result.app.args == [REPLACE, "a", "b", "c"]
    assert not tree.configuration.exists()
    assert lab.requests == []


def test_settled_folder_is_swept_before_the_settings_are_read(lab):
    tree = install(lab, configuration=b"{}", files={".vpr-update/staging-1.1.0.0-1-2/deep/file": b"x",
                                                    ".vpr-update/backup-1.0.0.0-1-2/file": b"x"})
    stopped_with(lab.run(tree, answers=["ok"]), 3, "current.json 缺少必要欄位或使用不支援的格式。")
    tree.assert_no_leftovers()


def test_recovery_that_fails_stops_before_the_settings_are_read(lab):
    tree = install(lab, configuration=b"unusable", files={".vpr-update/transaction.json": b"{}"})
    before = tree.snapshot()
    for _ in range(2):
        stopped_with(lab.run(tree, answers=["ok"]), 39, "上一次更新的交易紀錄無效；已保留備份並停止啟動。")
        assert tree.snapshot() == before


def test_conflicting_records_stop_every_start(lab):
    tree = install(lab, files={".vpr-update/transaction.json": b"{}", ".vpr-update/transaction-committed.json": b"{}"})
    before = tree.snapshot()
    for arguments in ([], ["--skip-update-check"]):
        stopped_with(lab.run(tree, arguments, ["ok"]), 39, "偵測到衝突的更新交易紀錄；已保留備份並停止啟動。")
        assert tree.snapshot() == before


def test_update_folder_that_is_a_file_stops_the_launch(lab):
    tree = install(lab, files={".vpr-update": b"a file"})
    stopped_with(lab.run(tree, answers=["ok"]), 39, "更新交易位置不是安全的一般資料夾。")


def test_update_folder_that_is_a_link_stops_the_launch(lab, tree):
    (lab.folder / "elsewhere").mkdir()
    tree.update_folder.symlink_to(lab.folder / "elsewhere", target_is_directory=True)
    stopped_with(lab.run(tree, answers=["ok"]), 39, "更新交易位置不是安全的一般資料夾。")


def test_interrupted_update_is_rolled_back_by_a_start_without_check(lab, tree):
    journal = (
        '{\n  "schemaVersion": 1,\n  "backupDirectory": "backup-1.0.0.0-1-2",\n  "targets": [\n'
        '    {"path": "Velmora Pine Relay\\\\Velmora Pine Relay.exe", "hadOriginal": true},\n'
        '    {"path": "Velmora Pine Relay\\\\Themes\\\\new.vprtheme", "hadOriginal": false},\n'
        '    {"path": "current.json", "hadOriginal": true}\n  ]\n}\n'
    )
    old = tree.snapshot()
    backup = ".vpr-update/backup-1.0.0.0-1-2/"
    tree.write(backup + APPLICATION_PATH, tree.application.read_bytes())
    tree.write(backup + "current.json", tree.configuration.read_bytes())
    tree.write(".vpr-update/transaction.json", journal)
    tree.write(APPLICATION_PATH, app_binary("1.1.0.0"))
    tree.write(f"{APPLICATION_FOLDER}/Themes/new.vprtheme", b"new")
    tree.write_configuration(product_version="1.1.0.0")
    result = lab.run(tree, ["--skip-update-check"])
    assert result.exit_code == 0 and result.app.version == "1.0.0.0"
    assert tree.snapshot(exclude=STATE) == old
    tree.assert_no_leftovers()


def test_second_launcher_is_refused_while_the_first_holds_the_lock(lab, tree):
    gate = lab.gate()
    new = update()
    new.publish(lab, payloads={APPLICATION_PATH: new.payload_reply(APPLICATION_PATH).but(hold=gate)})
    first = lab.start(tree, answers=["yes"])
    lab.wait_for_request(names.PRIMARY_RELEASE)
    second = lab.run(tree, answers=["ok"])
    stopped_with(second, 39, "另一個啟動器仍在處理更新；已停止啟動以避免混合版本。")
    gate.release()
    result = first.wait()
    assert result.exit_code == 0 and result.app.version == "1.1.0.0"
    tree.assert_no_leftovers()


def test_lock_taken_while_the_user_decides_stops_the_second_update(lab, tree):
    """Both launchers offer the update; the one that begins it wins, the other must not start a tree in change."""
    gate = lab.gate()
    new = update()
    new.publish(lab, payloads={APPLICATION_PATH: new.payload_reply(APPLICATION_PATH).but(hold=gate)})
    slow = lab.start(tree, answers=["wait", "ok"])
    slow.wait_for_window("prompt")
    fast = lab.start(tree, answers=["yes"])
    lab.wait_for_request(names.PRIMARY_RELEASE)
    slow.click("update")
    result = slow.wait()
    assert result.exit_code == 40 and result.app is None
    assert result.dialogs[-1].shows("另一個啟動器正在更新；本次暫不啟動主程式。")
    gate.release()
    assert fast.wait().app.version == "1.1.0.0"


def test_launcher_does_not_wait_for_the_application(lab, tree):
    handle = lab.start(tree, ["--skip-update-check"], ["wait"], env={"VPR_SAMPLE_DIALOG": "still here"})
    assert handle.wait_for_exit() == 0
    assert handle.is_running, "the application is still there"
    handle.wait_for_window("dialog")
    handle.close_window()
    handle.wait()
