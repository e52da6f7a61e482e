#include "service/run_channel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace service {
namespace {

constexpr std::size_t kMaxTexts = 3;
constexpr std::size_t kTotalsFields = 6;
constexpr std::size_t kMaxPacket =
    1 + 1 + kTotalsFields * 8 + kMaxTexts * (4 + kMaxMessageText);

void PutNumber(std::string* packet, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) packet->push_back(static_cast<char>(value >> (8 * i)));
}

class PacketReader {
 public:
  PacketReader(const char* data, std::size_t size) : data_(data), size_(size) {}
  bool Number(std::uint64_t* value, int bytes) {
    if (size_ - at_ < static_cast<std::size_t>(bytes)) return false;
    *value = 0;
    for (int i = 0; i < bytes; ++i)
      *value |= std::uint64_t{static_cast<unsigned char>(data_[at_ + i])} << (8 * i);
    at_ += static_cast<std::size_t>(bytes);
    return true;
  }
  bool Text(std::string* text) {
    std::uint64_t length = 0;
    if (!Number(&length, 4) || length > kMaxMessageText || size_ - at_ < length) return false;
    text->assign(data_ + at_, length);
    at_ += length;
    return true;
  }
  bool AtEnd() const { return at_ == size_; }

 private:
  const char* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

std::uint64_t* TotalsField(TreeScanTotals& totals, std::size_t index) {
  std::uint64_t* fields[kTotalsFields] = {&totals.files,   &totals.bytes,  &totals.infected,
                                          &totals.actions, &totals.errors, &totals.skippedDumps};
  return fields[index];
}

bool KnownKind(char kind) { return std::strchr("DNQKXPT", kind) != nullptr && kind != '\0'; }

}  // namespace

bool SendMessage(int socket, const Message& message) {
  std::string packet;
  packet.push_back(static_cast<char>(message.kind));
  packet.push_back(static_cast<char>(std::min(message.texts.size(), kMaxTexts)));
  TreeScanTotals totals = message.totals;
  for (std::size_t i = 0; i < kTotalsFields; ++i) PutNumber(&packet, *TotalsField(totals, i), 8);
  for (std::size_t i = 0; i < message.texts.size() && i < kMaxTexts; ++i) {
    const std::string& text = message.texts[i];
    const std::size_t length = std::min(text.size(), kMaxMessageText);
    PutNumber(&packet, length, 4);
    packet.append(text, 0, length);
  }
  iovec part{packet.data(), packet.size()};
  msghdr header{};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  if (message.fd >= 0) {
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    cmsghdr* rights = CMSG_FIRSTHDR(&header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(rights), &message.fd, sizeof(int));
  }
  ssize_t sent;
  do {
    sent = sendmsg(socket, &header, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(packet.size());
}

bool ReceiveMessage(int socket, Message* message, bool* interrupted) {
  *interrupted = false;
  std::string packet(kMaxPacket, '\0');
  iovec part{packet.data(), packet.size()};
  msghdr header{};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 4)] = {};
  header.msg_control = control;
  header.msg_controllen = sizeof control;
  const ssize_t got = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
  if (got < 0 && errno == EINTR) {
    *interrupted = true;
    return false;
  }
  // Descriptors that came are taken, so that none leaks whatever follows.
  message->fd = -1;
  std::vector<int> received;
  for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
    if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd;
      std::memcpy(&fd, CMSG_DATA(item) + i * sizeof(int), sizeof fd);
      received.push_back(fd);
    }
  }
  const auto closeAll = [&] {
    for (const int fd : received) close(fd);
    return false;
  };
  if (got <= 0 || (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) return closeAll();
  PacketReader reader(packet.data(), static_cast<std::size_t>(got));
  std::uint64_t kind = 0;
  std::uint64_t count = 0;
  if (!reader.Number(&kind, 1) || !KnownKind(static_cast<char>(kind)) ||
      !reader.Number(&count, 1) || count > kMaxTexts)
    return closeAll();
  message->kind = static_cast<MessageKind>(kind);
  for (std::size_t i = 0; i < kTotalsFields; ++i) {
    if (!reader.Number(TotalsField(message->totals, i), 8)) return closeAll();
  }
  message->texts.assign(count, "");
  for (std::string& text : message->texts) {
    if (!reader.Text(&text)) return closeAll();
  }
  if (!reader.AtEnd()) return closeAll();
  const bool wantsFd = message->kind == MessageKind::kQuarantine;
  if (received.size() != (wantsFd ? 1u : 0u)) return closeAll();
  if (wantsFd) message->fd = received.front();
  return true;
}

}  // namespace service
