// Pages that show nothing of the library: the login, and what cannot be shown.
#pragma once

#include "tools/serve/http/exchange.h"
#include "tools/serve/http/login.h"

namespace koli::serve {

/// The form that the token is put into.
Reply LoginPage(const LoginView& view);

/// For an error status; `text` says more.
Reply ErrorPage(int status, const char* text);

}  // namespace koli::serve
