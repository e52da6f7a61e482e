#include "service/owner_scan.h"

#include <grp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "service/run_channel.h"

namespace service {
namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void RequestStop(int) { stopRequested.store(true); }

// Sends what the tree scan finds to the service's side. The scan calls it
// one call at a time.
class ChannelSink : public TreeScanSink {
 public:
  explicit ChannelSink(int socket) : socket_(socket) {}

  void Detected(const Detection& detection) override {
    Send(MessageKind::kDetection, {detection.path, detection.signature, detection.action});
  }
  void NotAccessible(const std::string& path, const std::string& reason) override {
    Send(MessageKind::kNotAccessible, {path, reason});
  }
  std::string Quarantine(int fd, const struct stat&, const std::string& path,
                         const std::string& signature) override {
    Message request;
    request.kind = MessageKind::kQuarantine;
    request.texts = {path, signature};
    request.fd = fd;
    if (!SendMessage(socket_, request)) return "";
    Message reply;
    bool interrupted = false;
    while (!ReceiveMessage(socket_, &reply, &interrupted)) {
      if (!interrupted) return "";
    }
    if (reply.kind != MessageKind::kKept || reply.texts.size() != 1) return "";
    return reply.texts.front();
  }
  void DropQuarantined(const std::string& id) override { Send(MessageKind::kDrop, {id}); }
  void Progress(const TreeScanTotals& totals, const std::string& directory) override {
    Message message;
    message.kind = MessageKind::kProgress;
    message.totals = totals;
    message.texts = {directory};
    SendMessage(socket_, message);
  }

 private:
  void Send(MessageKind kind, std::vector<std::string> texts) {
    Message message;
    message.kind = kind;
    message.texts = std::move(texts);
    SendMessage(socket_, message);
  }

  int socket_;
};

// Takes the owner's groups and ids for good; root's scans keep root's.
bool BecomeOwner(const OwnerIds& owner) {
  if (owner.uid == 0) return true;
  const int groups = owner.login.empty() ? setgroups(0, nullptr)
                                         : initgroups(owner.login.c_str(), owner.gid);
  if (groups != 0 || setresgid(owner.gid, owner.gid, owner.gid) != 0 ||
      setresuid(owner.uid, owner.uid, owner.uid) != 0)
    return false;
  // Root must not come back, and the owner must not look into this process,
  // which holds the channel to root's side.
  return setresuid(0, 0, 0) != 0 && prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0;
}

[[noreturn]] void RunChild(const OwnerIds& owner, const TreeScanRequest& request,
                           const ScanEngine& engine, int socket) {
  struct sigaction stop {};
  stop.sa_handler = RequestStop;
  sigemptyset(&stop.sa_mask);
  sigaction(SIGTERM, &stop, nullptr);
  sigaction(SIGINT, &stop, nullptr);
  if (!BecomeOwner(owner)) {
    std::fprintf(stderr, "schscand: cannot take the ids of user %u: %s\n",
                 static_cast<unsigned>(owner.uid), std::strerror(errno));
    _exit(3);
  }
  if (chdir("/") != 0) _exit(3);
  ChannelSink sink(socket);
  Message totals;
  totals.kind = MessageKind::kTotals;
  totals.totals = ScanTrees(request, engine, sink, stopRequested);
  _exit(SendMessage(socket, totals) ? 0 : 3);
}

}  // namespace

pid_t StartOwnerScan(const OwnerIds& owner, const TreeScanRequest& request,
                     const ScanEngine& engine, int socket, int parentSocket) {
  const pid_t child = fork();
  if (child == 0) {
    // Nothing of root's side stays open here but standard input, output and
    // error: the channel becomes descriptor 3.
    close(parentSocket);
    if ((socket != 3 && dup2(socket, 3) != 3) || close_range(4, ~0U, 0) != 0) _exit(3);
    RunChild(owner, request, engine, 3);
  }
  return child;
}

}  // namespace service
