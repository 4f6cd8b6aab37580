// Shell completion and the manual page of the lumeo command, generated from
// the command definitions themselves: the generators walk the CLI11 tree,
// so every command a file registers (through CommandRegistration) appears
// in both without being listed anywhere else. The build runs
// `lumeo --generate-completion bash|zsh` and `lumeo --generate-man` and
// `cmake --install` installs the results.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace lumeo::cli {

// A bash script defining _lumeo and registering it with `complete`.
std::string bashCompletion(const CLI::App& root);
// A zsh completion script (#compdef lumeo), for a folder on $fpath.
std::string zshCompletion(const CLI::App& root);
// The manual page lumeo(1) in roff (man macros).
std::string manPage(const CLI::App& root, const std::string& version);

}  // namespace lumeo::cli
