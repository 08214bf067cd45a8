"""What completes the words of lab/lab in bash, made of its own parser: eval "$(lab/lab completion)"."""

from __future__ import annotations

import argparse

from . import commands, paths

HOSTS = ["router", "pc1", "pc2", "pc3", "pc4", "isp", "isp2", "agent", "machine"]
FRAME = """# Completes the words of {name} in bash.
_ivarode_lab() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} command='' places='' options='' files='' given=0 at
    COMPREPLY=()
    for ((at = 1; at < COMP_CWORD; at++)); do
        case ${{COMP_WORDS[at]}} in
        {valued}) at=$((at + 1)) ;;
        -*) ;;
        *)
            [ -z "$command" ] || given=$((given + 1))
            command=${{command:-${{COMP_WORDS[at]}}}}
            ;;
        esac
    done
    case ${{COMP_WORDS[COMP_CWORD - 1]}} in
{values}
    *)
        case $command-$given in
        -0) places="{top}" options="{own}" ;;
{commands}
        esac
        ;;
    esac
    case $word in -*) places=$options files='' ;; esac
    mapfile -t COMPREPLY < <(compgen -W "$places" ${{files:+-f}} -- "$word")
}}
complete -F _ivarode_lab {name}
"""
# Values of options, whose commands do not matter.
VALUES = {"--board": "boards", "--config": "configs"}


def samples(kind: str) -> list[str]:
    return sorted(path.stem for path in (paths.LAB / kind).iterdir())


def choices(action: argparse.Action) -> list[str]:
    if action.dest == "host":
        return HOSTS
    return [str(choice) for choice in action.choices or []]


def names(parser: argparse.ArgumentParser) -> list[str]:
    """The options of a parser, the long form where there is one."""
    return [action.option_strings[-1] for action in parser._actions if action.option_strings]


def subcommands() -> dict[str, argparse.ArgumentParser]:
    top = commands.parser()
    (found,) = [action.choices for action in top._actions if isinstance(action, argparse._SubParsersAction)]
    return dict(found)


def valued() -> dict[str, str]:
    """Options that take a value: what stands for it in the help."""
    parsers = [commands.parser(), *subcommands().values()]
    return {option: action.metavar if isinstance(action.metavar, str) else ""
            for parser in parsers for action in parser._actions if action.nargs != 0
            for option in action.option_strings}


def value_lines() -> list[str]:
    files = [option for option, value in valued().items() if value in ("FILE", "OUT")]
    lines = [f'    {option}) places="{" ".join(samples(kind))}" files=1 ;;' for option, kind in VALUES.items()]
    others = [option for option in valued() if option not in VALUES and option not in files]
    return [*lines, f'    {" | ".join(files)}) files=1 ;;', f'    {" | ".join(others)}) ;;']


def command_lines() -> list[str]:
    """For each command its options, and what its next word may be; files where its parser names one."""
    lines = []
    for name, parser in subcommands().items():
        places = [action for action in parser._actions if not action.option_strings]
        options = " ".join(names(parser))
        for number, action in enumerate(places):
            what = f'places="{" ".join(choices(action))}"' if choices(action) else ""
            what += "files=1" if action.metavar == "FILE" else ""
            lines.append(f'        {name}-{number}) options="{options}" {what} ;;'.replace("  ;;", " ;;"))
        lines.append(f'        {name}-*) options="{options}" ;;')
    return lines


def script(name: str = "lab/lab") -> str:
    return FRAME.format(name=name, values="\n".join(value_lines()), valued=" | ".join(valued()),
                        top=" ".join(subcommands()), own=" ".join(names(commands.parser())),
                        commands="\n".join(command_lines()))
