// Which server, and as whom: the text behind "postgresql:" in the settings.
#pragma once

#include <string>

#include "platform/host/postgresql/servers.h"

namespace koli::host {

/// A libpq string or URI, taken apart.  A password may stand in it; nothing here says it.
class Conninfo {
  public:
    /// `text` may be broken; IsValid tells.
    explicit Conninfo(const std::string& text);
    bool IsValid() const { return is_valid_; }

    /// Host and database for people.
    std::string Place() const;

    std::string ValueOf(const std::string& name) const;  ///< '' = it is not given
    bool HasPassword() const;
    /// The same with another value.
    Conninfo Changed(const std::string& name, const std::string& value) const;
    /// As libpq reads it, without a password.
    std::string Text() const;

    /// What libpq is told: the writer wants the server that takes changes, whichever of the hosts that is.
    Settings ForWriter() const;
    Settings ForReader() const;

  private:
    Settings With(const Settings& defaults) const;

    bool is_valid_ = false;
    Settings settings_;
};

}  // namespace koli::host
