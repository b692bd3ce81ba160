// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/manual/outline.hpp"
#include "tools/manual/writers.hpp"

namespace vorn::tools {

namespace {

std::string names(std::vector<CommandOutline> const& commands) {
  std::string text;
  for (CommandOutline const& command : commands) {
    text += (text.empty() ? "" : " ") + command.name;
  }
  return text;
}

/// The names of the options that `isWanted` picks.
template <class Predicate>
std::string names(std::vector<ArgumentOutline> const& options, Predicate const& isWanted) {
  std::string text;
  for (ArgumentOutline const& option : options) {
    if (isWanted(option)) {
      for (std::string const& name : option.names) {
        text += (text.empty() ? "" : " ") + name;
      }
    }
  }
  return text;
}

bool isAny(ArgumentOutline const& /*option*/) {
  return true;
}

bool takesNoPath(ArgumentOutline const& option) {
  return !option.values.empty() && (!option.takesPath() || !option.words.empty());
}

std::string joined(std::vector<std::string> const& words) {
  std::string text;
  for (std::string const& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

/// Text between single quotes, in which zsh gives a meaning to brackets and colons.
std::string zshText(std::string const& text) {
  std::string result;
  for (char const c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += std::string(c == '[' || c == ']' || c == ':' || c == '\\' ? "\\" : "") + c;
    }
  }
  return result;
}

void writeZshOptions(std::ostream& out, std::vector<ArgumentOutline> const& options) {
  for (ArgumentOutline const& option : options) {
    for (std::string const& name : option.names) {
      out << " \\\n        '" << (option.mayRepeat ? "*" : "") << name << '[' << zshText(option.help) << ']';
      for (std::string const& value : option.values) {
        out << ':' << zshText(value) << ':';
        if (!option.words.empty()) {
          out << "{compadd -S \"\" - " << zshText(joined(option.words)) << '}';
        } else if (value == pathKind) {
          out << "_files";
        }
      }
      out << '\'';
    }
  }
}

} // namespace

void writeBashCompletion(std::ostream& out, CLI::App const& program) {
  std::vector<CommandOutline> const commands = commandsOf(program);
  out << "# Completion of vorn-mv for bash.\n"
         "# The words that go on from what is typed of one, behind the last comma; values only behind their "
         "\"=\".\n"
         "_vorn_mv_words() { # WORDS TYPED\n"
         "  local class= last=${2##*[:,]} word\n"
         "  [[ $2 == *:* ]] && class=${2%%:*}:\n"
         "  for word in $1; do\n"
         "    [[ $word == \"$class\"* ]] || continue\n"
         "    word=${word#\"$class\"}\n"
         "    [[ $word == *:* || ( $word == *=?* && $last != *=* ) || $word != \"$last\"* ]] && continue\n"
         "    [[ $word == *= && $word == \"$last\" ]] && continue\n"
         "    COMPREPLY+=(\"${2%\"$last\"}$word\")\n"
         "  done\n"
         "}\n"
         "_vorn_mv() {\n"
         "  # What is typed may be split at \"=\" and \":\".\n"
         "  local at=$COMP_CWORD typed=${COMP_WORDS[COMP_CWORD]}\n"
         "  while ((at > 1)) && [[ $typed == [:=]* || ${COMP_WORDS[at - 1]} == [:=] ]]; do\n"
         "    ((at -= 1))\n"
         "    typed=${COMP_WORDS[at]}$typed\n"
         "  done\n"
         "  local split=${typed%\"${typed##*[:=]}\"} current=$typed previous=${COMP_WORDS[at - 1]}\n"
         "  ((at < COMP_CWORD)) || split=\n"
         "  if [[ $typed == --*=* ]]; then\n"
         "    previous=${typed%%=*} current=${typed#*=}\n"
         "    split=${split#\"$previous=\"}\n"
         "  fi\n"
         "  local command= options= plain= words= word\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    if [[ $word != -* ]]; then\n"
         "      command=$word\n"
         "      break\n"
         "    fi\n"
         "  done\n"
         "  # plain: the options with a value that is no path.\n"
         "  case $command in\n";
  for (CommandOutline const& command : commands) {
    out << "    " << command.name << ")\n      options='" << names(command.options, isAny)
        << "'\n      plain='" << names(command.options, takesNoPath) << "' ;;\n";
  }
  out << "    *) options='" << names(commands) << ' ' << names(outlineOf(program).options, isAny)
      << "' ;;\n"
         "  esac\n"
         "  case \"$command $previous\" in\n";
  for (CommandOutline const& command : commands) {
    for (ArgumentOutline const& option : command.options) {
      for (std::string const& name : option.words.empty() ? std::vector<std::string>() : option.names) {
        out << "    '" << command.name << ' ' << name << "') words='" << joined(option.words) << "' ;;\n";
      }
    }
  }
  out << "  esac\n"
         "  COMPREPLY=()\n"
         "  if [[ -n $words ]]; then\n"
         "    _vorn_mv_words \"$words\" \"$current\"\n"
         "    COMPREPLY=(\"${COMPREPLY[@]#\"$split\"}\")\n"
         "    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then\n"
         "      compopt -o nospace 2>/dev/null || :\n"
         "    fi\n"
         "  elif [[ -z $command || $current == -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$current\")\n"
         "  elif [[ \" $plain \" != *\" $previous \"* ]]; then\n"
         "    compopt -o filenames 2>/dev/null\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  fi\n"
         "}\n"
         "complete -F _vorn_mv vorn-mv\n";
}

void writeZshCompletion(std::ostream& out, CLI::App const& program) {
  std::vector<CommandOutline> const commands = commandsOf(program);
  out << "#compdef vorn-mv\n"
         "local context state state_descr line\n"
         "typeset -A opt_args\n"
         "local -a commands=(\n";
  for (CommandOutline const& command : commands) {
    out << "  '" << command.name << ':' << zshText(command.help) << "'\n";
  }
  out << ")\n_arguments -C";
  writeZshOptions(out, outlineOf(program).options);
  out << " \\\n        '1:command:->command' '*::argument:->argument'\n"
         "case $state in\n"
         "  command) _describe command commands ;;\n"
         "  argument)\n"
         "    case $words[1] in\n";
  for (CommandOutline const& command : commands) {
    out << "      " << command.name << ")\n        _arguments";
    writeZshOptions(out, command.options);
    out << " \\\n        '*:path:_files' ;;\n";
  }
  out << "    esac ;;\n"
         "esac\n";
}

} // namespace vorn::tools
