"""The plugin for pytest: a host of its own for each test, in whatever order they run."""

from __future__ import annotations

import importlib
from typing import TYPE_CHECKING, Any

import _libkestrel
import pytest

if TYPE_CHECKING:
    from libkestrel.testing import EmbeddedHost

pytest_plugins = ["pytester"]

SCENARIO = """
name = "small"

[[switch]]
name = "dvs-small"
"""


@pytest.mark.parametrize("turn", [1, 2])
def test_each_test_has_the_sample_host_to_itself(kestrel_host: EmbeddedHost, turn: int) -> None:
    assert list(kestrel_host.switches) == ["dvs-prod", "dvs-storage"], turn
    assert kestrel_host.switch("dvs-prod").mtu == 1500
    kestrel_host.switch("dvs-prod").mtu = 9000
    kestrel_host.switches.create("another", "another-id")
    kestrel_host.lab.arm("VSDVS_SetMTU", status=_libkestrel.ZEL_BUSY, times=kestrel_host.lab.ALWAYS)


def test_time_stands_still_until_it_is_advanced(kestrel_host: EmbeddedHost) -> None:
    learned = len(kestrel_host.switch("dvs-prod").mac_table(_libkestrel.VS_MAC_ADDR_TYPE_LEARNED))
    before = kestrel_host.clock.now()
    kestrel_host.clock.advance(10_000)
    assert kestrel_host.clock.now() == before + 10_000
    assert len(kestrel_host.switch("dvs-prod").mac_table(_libkestrel.VS_MAC_ADDR_TYPE_LEARNED)) < learned


def test_calls_fail_as_they_are_told(kestrel_host: EmbeddedHost) -> None:
    from libkestrel import errors

    switch = kestrel_host.switch("dvs-prod")
    with kestrel_host.fault("VSDVS_SetMTU", status=_libkestrel.ZEL_TIMEOUT), pytest.raises(errors.Timeout):
        switch.mtu = 9000
    with kestrel_host.fault("VSDVS_GetMTU", raises=OSError("host gone")), pytest.raises(OSError, match="host gone"):
        switch.mtu
    with kestrel_host.counted_calls() as calls:
        switch.mtu = 9000
    assert calls["VSDVS_SetMTU"] == 1


def test_hosts_can_be_empty_or_as_a_scenario_says(kestrel_host: EmbeddedHost, tmp_path: Any) -> None:
    kestrel_host.empty()
    assert list(kestrel_host.switches) == []
    file = tmp_path / "small.toml"
    file.write_text(SCENARIO)
    for load, source in ((kestrel_host.load, file), (kestrel_host.load_text, SCENARIO)):
        kestrel_host.empty()
        load(source)
        assert list(kestrel_host.switches) == ["dvs-small"]


def test_the_plugin_can_be_found() -> None:
    plugin = importlib.import_module("libkestrel.testing")
    assert plugin.__doc__
    assert plugin.kestrel_host.__doc__


# ---- In sessions of users ----


def session(pytester: pytest.Pytester, source: str, *options: str) -> pytest.RunResult:
    """A session of its own over one file of tests; the plugin comes with the installed package alone."""
    pytester.makepyfile(source)
    return pytester.runpytest_subprocess("-p", "no:cacheprovider", *options)


def test_what_a_failing_test_leaves_behind_is_undone(pytester: pytest.Pytester) -> None:
    result = session(
        pytester,
        """
        import _libkestrel
        import pytest
        from libkestrel import errors

        def test_first(kestrel_host):
            kestrel_host.lab.arm("VSDVS_GetMTU", status=_libkestrel.ZEL_BUSY, times=kestrel_host.lab.ALWAYS)
            kestrel_host.empty()
            kestrel_host.clock.advance(100)
            assert False

        @pytest.mark.parametrize("turn", [1, 2])
        def test_second(kestrel_host, turn):
            assert kestrel_host.lab.armed_faults() == []
            assert kestrel_host.switch("dvs-prod").mtu == 1500
            assert kestrel_host.clock.now() < 400
            kestrel_host.switches.create("dvs-second", "id")
        """,
    )
    result.assert_outcomes(failed=1, passed=2)


def test_what_was_there_before_a_test_comes_back_after_it(pytester: pytest.Pytester) -> None:
    result = session(
        pytester,
        """
        from libkestrel import Host

        def test_without_the_fixture():
            Host().switch("dvs-prod").mtu = 2000

        def test_with_the_fixture(kestrel_host):
            assert kestrel_host.switch("dvs-prod").mtu == 1500
            kestrel_host.switch("dvs-prod").mtu = 9000

        def test_without_the_fixture_again():
            assert Host().switch("dvs-prod").mtu == 2000
        """,
    )
    result.assert_outcomes(passed=3)


def test_scenarios_are_found_where_the_session_runs(pytester: pytest.Pytester) -> None:
    pytester.path.joinpath("small.toml").write_text(SCENARIO)
    pytester.path.joinpath("wrong.toml").write_text("[[switch]]\nnothing = 1\n")
    result = session(
        pytester,
        """
        import pytest
        from libkestrel.lab.scenario import ScenarioError

        def test_a_scenario(kestrel_host):
            kestrel_host.load("small.toml")
            assert list(kestrel_host.switches) == ["dvs-small"]

        def test_a_wrong_one(kestrel_host):
            with pytest.raises(ScenarioError):
                kestrel_host.load("wrong.toml")
            assert list(kestrel_host.switches) == ["dvs-prod", "dvs-storage"]
        """,
    )
    result.assert_outcomes(passed=2)


def test_faults_reach_the_script_under_test(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        script="""
        from libkestrel import Host, errors

        def grow(name):
            try:
                return Host().switch(name).ensure_mtu(9000)
            except errors.Busy:
                return None
        """
    )
    result = session(
        pytester,
        """
        import _libkestrel
        from script import grow

        def test_busy(kestrel_host):
            with kestrel_host.fault("VSDVS_SetMTU", status=_libkestrel.ZEL_BUSY):
                assert grow("dvs-prod") is None
            assert grow("dvs-prod") is True
            assert grow("dvs-prod") is False
        """,
    )
    result.assert_outcomes(passed=1)


def test_sessions_about_other_things_do_not_pay_for_it(pytester: pytest.Pytester) -> None:
    result = session(
        pytester,
        """
        import sys

        def test_other():
            assert "libkestrel.testing" in sys.modules
            assert not {"_libkestrel", "libkestrel.host", "libkestrel.lab", "libkestrel.records"} & set(sys.modules)
        """,
    )
    result.assert_outcomes(passed=1)


def test_on_another_platform_tests_are_skipped(pytester: pytest.Pytester) -> None:
    pytester.makeconftest(
        """
        from libkestrel import lab

        def refuse():
            raise lab.NotEmbeddedError("another platform")

        lab.require = refuse
        """
    )
    result = session(pytester, "def test_it(kestrel_host): pass", "-rs")
    result.assert_outcomes(skipped=1)
    result.stdout.fnmatch_lines(["*another platform*"])


def test_the_fixture_tells_what_it_is(pytester: pytest.Pytester) -> None:
    result = session(pytester, "", "--fixtures")
    result.stdout.fnmatch_lines(["kestrel_host*", "*embedded host of the test's own*"])


def test_the_fixture_reaches_options_and_the_store(kestrel_host: EmbeddedHost) -> None:
    assert kestrel_host.options["IGMPVersion"] == 3
    assert [switch.name for switch in kestrel_host.store] == ["dvs-prod", "dvs-storage"]
