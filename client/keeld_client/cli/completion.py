"""The completion of keelctl for bash."""

from __future__ import annotations

from collections.abc import Iterable

from .command import Command, options_of

_SCRIPT = '''# Completion of keelctl for bash, generated from the commands that it has. Do not edit.

_keelctl() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} path='' words='' word i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${{COMP_WORDS[i]}}
    case "$path $word" in
      {valued}) ((i++)) ;;
      *' -'*) ;;
      *)
        case $path in
          {leaves}) ;;
          *) path+=" $word" ;;
        esac
        ;;
    esac
  done
  case "$path $previous" in
{values}
    {files})
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    {valued}) return ;;
  esac
  case $path in
{words}
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}}

complete -F _keelctl keelctl
'''


def bash(commands: Iterable[Command]) -> str:
    """The script, to be read by bash."""
    words: dict[str, list[str]] = {}
    leaves, valued, files = [], [], []
    values: dict[str, tuple[str, ...]] = {}
    for command in commands:
        for length, word in enumerate(command.words):
            below = words.setdefault(_path(command.words[:length]), [])
            if word not in below:
                below.append(word)
        path = _path(command.words)
        leaves.append(path)
        options = options_of(command)
        words[path] = sorted(name for option in options if not option.is_argument for name in option.names) + ["--help"]
        for option in options:
            if option.takes_value:
                place = f"{path} {option.name}"
                valued.append(place)
                if option.choices:
                    values[place] = option.choices
                elif option.file:
                    files.append(place)
    return _SCRIPT.format(
        valued=_patterns(valued), leaves=_patterns(leaves), files=_patterns(files),
        values="\n".join(f'    {_quoted(place)}) mapfile -t COMPREPLY < <(compgen -W "{" ".join(choices)}" -- "$current"); return ;;'
                         for place, choices in values.items()) or "    # no option has a fixed set of values",
        words="\n".join(f'    {_quoted(path)}) words="{" ".join(below)}" ;;' for path, below in words.items()))


def _path(words: tuple[str, ...]) -> str:
    return "".join(f" {word}" for word in words)


def _quoted(text: str) -> str:
    return f"'{text}'"


def _patterns(texts: list[str]) -> str:
    return " | ".join(_quoted(text) for text in texts)
