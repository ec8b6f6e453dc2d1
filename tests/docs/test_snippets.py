"""Every command and snippet on the pages runs, or says why it does not."""

from __future__ import annotations

import re
from collections import Counter
from pathlib import Path

import _libkestrel
import click
import pytest

from libkestrel import errors
from libkestrel.cli.app import command as kestrel
from support.pages import ROOT, Block, blocks, commands, files_used, fits, inline_codes, is_generated, markers, pages
from support.snippets import Reader


def is_followed(block: Block) -> bool:
    return block.not_run is None and block.language not in ("", "text")


PAGES = pages()
BLOCKS = {str(page.relative_to(ROOT)): blocks(page) for page in PAGES}
FOLLOWED = {page: found for page, found in BLOCKS.items() if any(is_followed(block) for block in found)}

NOT_RUN = {
    "README.md": 3,
    "docs/command-line.md": 1,
    "docs/how-to/mirror-traffic-to-a-pcap.md": 1,
    "docs/how-to/rehearse-a-fault.md": 1,
    "docs/maintaining.md": 1,
    "docs/tutorial.md": 1,
}
"""How many blocks of each page are for reading alone. Each says why."""


def follow(found: list[Block], folder: Path) -> None:
    reader = Reader(folder)
    try:
        for block in found:
            if is_followed(block):
                reader.follow(block)
    finally:
        reader.end()


@pytest.mark.parametrize("page", FOLLOWED)
def test_the_snippets_of_a_page_run(page: str, tmp_path: Path) -> None:
    follow(BLOCKS[page], tmp_path)


def test_few_blocks_are_for_reading_alone() -> None:
    counted = Counter(block.page for found in BLOCKS.values() for block in found if block.not_run)
    assert counted == NOT_RUN


@pytest.mark.parametrize("page", PAGES, ids=lambda page: str(page.relative_to(ROOT)))
def test_every_marker_stands_before_a_block(page: Path) -> None:
    assert markers(page) == sum(1 for block in blocks(page) if block.not_run)


def test_every_block_says_what_it_is() -> None:
    """None is there by indentation, which has no language; generated pages have signatures so."""
    written = [found for page, found in BLOCKS.items() if not is_generated(ROOT / page)]
    assert [block.where for found in written for block in found if not block.language] == []


def test_no_command_hides_in_a_text() -> None:
    texts = [block for found in BLOCKS.values() for block in found if block.language == "text"]
    assert [block.where for block in texts if re.search(r"^(\$|>>>) ", block.text, re.MULTILINE)] == []


def test_every_file_of_a_page_is_used_on_it() -> None:
    unused = [
        block.where
        for found in BLOCKS.values()
        for number, block in enumerate(found)
        if block.file and block.not_run is None and not files_used(found, number)
    ]
    assert unused == []


# ---- Code within sentences ----

COMMANDS = sorted({code for page in PAGES for code in inline_codes(page) if code.startswith("kestrel ")})


def options_of(found: click.Command) -> set[str]:
    return {name for option in found.params for name in [*option.opts, *option.secondary_opts]} | {"--help", "-h"}


def unknown_words(code: str) -> list[str]:
    """The words of a command of `kestrel` that are no command or option. Words in capitals stand for something."""
    found: click.Command = kestrel
    known = options_of(found)
    unknown: list[str] = []
    for word in code.split()[1:]:
        if word.startswith("-"):
            unknown += [] if word.split("=")[0] in known else [word]
        elif isinstance(found, click.Group) and not word.isupper():
            inner = found.get_command(click.Context(found), word)
            if inner is None:
                return [*unknown, word]
            found = inner
            known |= options_of(found)
    return unknown


@pytest.mark.parametrize("code", COMMANDS)
def test_a_command_within_a_sentence_is_one(code: str) -> None:
    assert unknown_words(code) == []


def names_of_the_platform() -> set[str]:
    """What the flat module and the laboratory's header have."""
    return {*dir(_libkestrel), *re.findall(r"\bkestrel_lab_\w+", (ROOT / "include" / "kestrel" / "lab.h").read_text())}


def test_names_of_the_platform_within_sentences_are_there() -> None:
    pattern = re.compile(r"(?:ZEL|VS|VSZEL|VSDVS|VSPROP|DVS|DVSZEL|DVSState|kestrel_lab)_[A-Za-z0-9_]*[A-Za-z0-9]")
    written = [page for page in PAGES if not is_generated(page)]
    named = {code for page in written for code in inline_codes(page) if pattern.fullmatch(code)}
    assert len(named) > 50
    assert named - names_of_the_platform() == set()


def test_errors_within_sentences_are_there() -> None:
    page = ROOT / "docs" / "errors.md"
    rows = re.findall(r"^\| (`\w+`(?:, `\w+`)*) \|", page.read_text(), re.MULTILINE)
    named = {name for row in rows for name in re.findall(r"\w+", row)}
    assert named
    assert named - set(errors.__all__) == set()


def test_targets_of_make_within_sentences_are_there() -> None:
    named = {code.split()[1] for page in PAGES for code in inline_codes(page) if re.fullmatch(r"make [a-z0-9-]+", code)}
    targets = set(re.findall(r"^([a-z0-9-]+):", (ROOT / "Makefile").read_text(), re.MULTILINE))
    assert named - targets == set()


# ---- The mechanism itself ----


def page_of(folder: Path, text: str) -> list[Block]:
    page = folder / "page.md"
    page.write_text(text)
    return blocks(page)


@pytest.mark.parametrize(
    "text",
    [
        "```console\n$ echo shown\nanother\n```\n",
        "```console\n$ echo told\n```\n",
        "```console\n$ false\n```\n",
        "```console\n$ false\n$ echo $?\n0\n```\n",
        "```sh\nfalse\ntrue\n```\n",
        "```sh\necho told\n```\n\n```text\nshown\n```\n",
        "```python\nraise SystemExit\n```\n",
        "```python\nprint('told')\n```\n\n```text\nshown\n```\n",
        "```python\nimport warnings\nwarnings.warn('old', DeprecationWarning)\n```\n",
        "```toml\nkey\n```\n",
        "```yaml\nkey: value\n```\n",
        "```console\n$ exit\n```\n",
    ],
)
def test_a_wrong_block_is_found(text: str, tmp_path: Path) -> None:
    with pytest.raises((AssertionError, ValueError)):
        follow(page_of(tmp_path, text), tmp_path)


def test_blocks_go_on_where_those_before_ended(tmp_path: Path) -> None:
    text = """
```sh
export NAME=value
mkdir inner
```

```python
import os
from pathlib import Path
print(name := os.environ["NAME"])
```

```text
value
```

```python
print(name)
_ = Path("told.txt").write_text(name)
```

```text
value
```

```toml
# some.toml
key = 1
```

```console
$ cat told.txt some.toml && false
value# some.toml
key = 1
$ echo $?
1
$ printf '%s\\n' 1 2 3
1
...
$ cat <<END
> two
> lines
> END
two
l...s
```

<!-- not run: nobody has it -->
```sh
not-a-program
```
"""
    found = page_of(tmp_path, text)
    assert [block.not_run for block in found if block.not_run] == ["nobody has it"]
    assert (found[5].file, files_used(found, 5), files_used(found, 6)) == ("some.toml", True, False)
    follow(found, tmp_path)


def test_a_page_has_a_home_of_its_own(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("KESTREL_HOST", "/another")
    follow(page_of(tmp_path, "```console\n$ echo ${KESTREL_HOST-none} ${HOME##*/}\nnone home\n```\n"), tmp_path)


def test_outputs_are_compared_line_by_line() -> None:
    assert fits("a\n...\nb\n", "a\nb\n")
    assert fits("a ... c\n", "a b c  \n")
    assert not fits("a\n", "a\nb\n")
    assert not fits("a...c\n", "a\nc\n")
    with pytest.raises(ValueError, match="before the first command"):
        commands("told\n")


def test_words_that_are_no_commands_are_found() -> None:
    assert unknown_words("kestrel switch list --json") == []
    assert unknown_words("kestrel swicth list") == ["swicth"]
    assert unknown_words("kestrel switch list --jsno") == ["--jsno"]
