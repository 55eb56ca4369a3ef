#include "tools/serve/picture/maker_channel.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace koli::serve {
namespace {

/// Room for one descriptor beside a message.
union Control {
    cmsghdr head;  // for its alignment
    char bytes[CMSG_SPACE(sizeof(int))];
};

msghdr MessageOf(iovec& content, Control& control) {
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    return message;
}

UniqueFd DescriptorIn(msghdr& message) {
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    if (head == nullptr || head->cmsg_type != SCM_RIGHTS || head->cmsg_len != CMSG_LEN(sizeof(int)))
        return {};
    int descriptor = -1;
    memcpy(&descriptor, CMSG_DATA(head), sizeof descriptor);
    return UniqueFd(descriptor);
}

/// Whether a message of `size` bytes came through whole; else 0 is the other end's end.
bool IsWhole(ssize_t transferred, size_t size) {
    if (transferred >= 0) errno = 0;
    return transferred == static_cast<ssize_t>(size);
}

}  // namespace

PictureSlots::PictureSlots(size_t count) : file_(memfd_create("small pictures", MFD_CLOEXEC)) {
    if (!file_.valid() || ftruncate(file_.get(), static_cast<off_t>(count * sizeof(PictureSlot))) != 0)
        return;
    Map();
}

PictureSlots::PictureSlots(UniqueFd file) : file_(std::move(file)) {
    Map();
}

void PictureSlots::Map() {
    struct stat info {};
    if (fstat(file_.get(), &info) != 0) return;
    count_ = static_cast<size_t>(info.st_size) / sizeof(PictureSlot);
    void* area =
        mmap(nullptr, count_ * sizeof(PictureSlot), PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
    if (area != MAP_FAILED) slots_ = static_cast<PictureSlot*>(area);
}

PictureSlots::~PictureSlots() {
    if (valid()) munmap(slots_, count_ * sizeof(PictureSlot));
}

bool PictureSlots::ShareWithChildren(size_t index, bool is_shared) const {
    return madvise(slots_ + index, sizeof(PictureSlot), is_shared ? MADV_DOFORK : MADV_DONTFORK) == 0;
}

bool PictureSlots::HideFromChildren() const {
    return madvise(slots_, count_ * sizeof(PictureSlot), MADV_DONTFORK) == 0;
}

bool OrderSend(int socket, const PictureOrder& order, int file) {
    PictureOrder copy = order;
    iovec content{&copy, sizeof copy};
    Control control{};
    msghdr message = MessageOf(content, control);
    cmsghdr* head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(head), &file, sizeof file);
    return IsWhole(sendmsg(socket, &message, MSG_NOSIGNAL), sizeof copy);
}

bool OrderReceive(int socket, PictureOrder* order, UniqueFd* file) {
    iovec content{order, sizeof *order};
    Control control{};
    msghdr message = MessageOf(content, control);
    const ssize_t received = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    if (received > 0) *file = DescriptorIn(message);
    return IsWhole(received, sizeof *order);
}

bool AnswerSend(int socket, const PictureAnswer& answer) {
    return IsWhole(send(socket, &answer, sizeof answer, MSG_NOSIGNAL), sizeof answer);
}

bool AnswerReceive(int socket, PictureAnswer* answer) {
    return IsWhole(recv(socket, answer, sizeof *answer, 0), sizeof *answer);
}

}  // namespace koli::serve
