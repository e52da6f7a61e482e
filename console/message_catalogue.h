// Every text the tool shows is a key looked up in the product's message
// catalogue (gettext domain "lang") when it is printed.
#pragma once

// Returns the catalogue's text for `key`, or `key` itself where the catalogue
// (or the locale it needs) is missing. The text stays valid for the whole run.
const char* GetMessageText(const char* key);
