# The manual page and the completion, which come from the table of commands.
! needs command -v groff bash

$ groff -man -ww -z "$TOOL_TEXTS/tarsil.1"; groff -man -Tascii "$TOOL_TEXTS/tarsil.1" | sed 's/.\x08//g' | grep '^ *tarsil [ceu].*options]$'
       tarsil create DATA --field NAME:TYPE[:LENGTH]...  [options]
       tarsil export DATA [options]
       tarsil update DATA N [INDEX...]  --set NAME=VALUE...  [options]
       tarsil undelete DATA N...  [options]
       tarsil check DATA [INDEX...]  [options]
       tarsil compact DATA [INDEX...]  [options]
       tarsil explain [CODE...]  [options]
$ for name in $(tarsil --help | sed -n '/^Subcommands/,$s/^  \([a-z]*\) .*/\1/p'); do grep -q "^.SS tarsil $name$" "$TOOL_TEXTS/tarsil.1" || echo "no $name"; done

$ cat > complete << 'END'
> . "$TOOL_TEXTS/completion/tarsil"
> COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tarsil; echo "${COMPREPLY[@]}"
> END
> bash complete tarsil ex; bash complete tarsil find --ne; bash complete tarsil import x --duplicates ''
export explain
--nearest
yes no
