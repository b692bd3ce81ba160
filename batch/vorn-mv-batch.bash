# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# bash completion for vorn-mv-batch
_vorn_mv_batch() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $before in
    --out) mapfile -t COMPREPLY < <(compgen -d -- "$word") && return ;;
    --tool) mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
    --name) mapfile -t COMPREPLY < <(compgen -W '{folder} {parent} {grandparent}' -- "$word") && return ;;
    --limit | --workers | --scheduler | --wait | --threads | --tries | --time-limit) return ;;
  esac
  case $word in
    -*)
      mapfile -t COMPREPLY < <(compgen -W '--out --name --dry-run --only-failed --limit --again --rehash --workers
        --scheduler --wait --threads --tries --time-limit --no-sync --tool --quiet --version --help' -- "$word")
      ;;
    @*) mapfile -t COMPREPLY < <(compgen -P @ -f -- "${word#@}") ;;
    *) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
  esac
}
complete -o filenames -F _vorn_mv_batch vorn-mv-batch
