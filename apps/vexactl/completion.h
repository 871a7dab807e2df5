/// What may stand next on a command line: verbs, options, names of parameters and of their values. The tool's
/// own grammar and the catalogue tell; no device is asked. Thread: the main thread.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "device/catalogue.h"
#include "vexactl/line_editor.h"

using Catalogues = std::vector<std::shared_ptr<const vexa::Catalogue>>;

/// Of all models, and of a device without a name.
Catalogues AllCatalogues();
/// Of this host's model or, where that is not known, of all models.
Catalogues LikelyCatalogues();

/// What the last word may become. Letters match in either case.
/// @param words  without the tool's own name; the last one is being typed, and may be empty.
std::vector<std::string> Candidates(CLI::App& grammar, const std::vector<std::string>& words,
                                    const Catalogues& catalogues);

/// The same for a line of the shell, up to the cursor.
Completion CompleteLine(CLI::App& grammar, const std::string& before, const Catalogues& catalogues);

/// Adds the verb that the completion of bash, zsh and fish calls: "complete -- WORD...", which prints one
/// candidate a line.
void AddComplete(CLI::App& app);

/// Whether the words set a password: nothing to keep in a history.
bool SetsSecret(const std::vector<std::string>& words, const Catalogues& catalogues);
