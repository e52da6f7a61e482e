// The channel between a run's scanning process, which has the scan owner's
// ids, and the service's process that writes the report and keeps the
// quarantine: a SOCK_SEQPACKET socket pair, one message per packet. An
// infected file to quarantine travels as its open descriptor.
//
// The service's side trusts nothing that comes over it: the owner may have
// sent it, and every text is bounded and only ever shown.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "service/tree_scan.h"

namespace service {

enum class MessageKind : char {
  kDetection = 'D',      // texts: path, signature, action
  kNotAccessible = 'N',  // texts: path, reason
  kQuarantine = 'Q',     // texts: path, signature; with the file's descriptor
  kKept = 'K',           // the reply to kQuarantine; texts: the id, or ""
  kDrop = 'X',           // texts: the id of a copy that is not needed
  kProgress = 'P',       // totals; texts: the directory walked
  kTotals = 'T',         // totals: the last message of a run
};

struct Message {
  MessageKind kind = MessageKind::kTotals;
  std::vector<std::string> texts;
  TreeScanTotals totals;
  int fd = -1;  // received with kQuarantine; the receiver closes it
};

// The longest text a message carries; longer ones are cut.
inline constexpr std::size_t kMaxMessageText = std::size_t{16} * 1024;

// Sends one message (with `message.fd` when it is not -1). False when the
// other side is gone.
bool SendMessage(int socket, const Message& message);

// Receives the next message; false at the end of the channel, or on a
// malformed message (the channel is then to be closed). A signal that
// interrupts the wait gives false with `*interrupted` set.
bool ReceiveMessage(int socket, Message* message, bool* interrupted);

}  // namespace service
