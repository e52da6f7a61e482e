#include "console/message_catalogue.h"

#include <libintl.h>
#include <locale.h>
#include <stdlib.h>

#include "product_paths.h"

namespace {

constexpr const char kDomain[] = "lang";
constexpr const char kLocale[] = "en_US.utf8";

// The language is fixed: the locale is set by name, and LANGUAGE, which
// gettext would otherwise prefer to the locale, is removed from the
// environment, so nothing the caller sets changes which texts are shown.
void BindCatalogueOnce() {
  static bool bound = false;
  if (bound) return;
  bound = true;
  unsetenv("LANGUAGE");
  setlocale(LC_ALL, kLocale);  // Without the locale every text is its key.
  bindtextdomain(kDomain, kCatalogueDir);
  bind_textdomain_codeset(kDomain, "utf-8");
}

}  // namespace

const char* GetMessageText(const char* key) {
  BindCatalogueOnce();
  return dgettext(kDomain, key);
}
