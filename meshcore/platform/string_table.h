#pragma once
// The library's user-visible texts in English and French, by numeric id
// (string_ids.h names them).

#include <string>

namespace meshcore {

// The text of id in the active language; empty when the id has no text.
std::string LoadString(unsigned id);
// "en" or "fr" (only the first two letters count); anything else selects English,
// except an empty text, which returns to the choice made from the environment.
void SetLanguage(const std::string& lang);
// "en" or "fr". Until SetLanguage is called, French when the first of LC_ALL,
// LC_MESSAGES and LANG that is set begins with "fr", else English.
std::string GetLanguage();
// Replaces each "%1" in prompt by arg (for the file prompts).
std::string FormatPrompt(const std::string& prompt, const std::string& arg);

} // namespace meshcore
