// The process that has small pictures made, as the server sees it.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/unique_fd.h"
#include "tools/serve/picture/maker_channel.h"

namespace koli::serve {

/// The program, where it lies beside this one; empty when that cannot be told.
std::string MakerProgram();

/// One such process.  It ends with this object.
class MakerProcess {
  public:
    MakerProcess() = default;
    ~MakerProcess() { End(); }
    MakerProcess(const MakerProcess&) = delete;
    MakerProcess& operator=(const MakerProcess&) = delete;

    /// Starts `program` and waits until it takes orders for `slots`, some seconds at most.  False, and
    /// `error` tells why, when it does not.
    bool Start(const std::string& program, const PictureSlots& slots, std::string* error);
    void End();

    bool is_running() const { return socket_.valid(); }
    /// For orders and answers; -1 when it does not run.
    int socket() const { return socket_.get(); }

  private:
    bool Spawn(const std::string& program, int slots, std::string* error);
    bool IsReady() const;
    int Wait();

    pid_t pid_ = 0;
    UniqueFd socket_;
};

}  // namespace koli::serve
