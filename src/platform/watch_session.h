// The link to a watch companion: one session that carries message
// dictionaries both ways. A phone has the platform's watch session; Linux
// has a Unix socket in the user's runtime directory
// (platform/linux/unix_watch_session.h, docs/watch-protocol.md). The core
// talks to whichever is installed through this seam.
//
// Threads: the delegate hears activation and messages on the session's own
// serial queue, never on the main queue; a reply handler may be called from
// any thread, at most once, and a reply after the peer went away is dropped.
#pragma once

#include <functional>
#include <memory>

#include "platform/value.h"

namespace lumeo {

class WatchSession;

class WatchSessionDelegate {
 public:
  virtual ~WatchSessionDelegate() = default;
  using ReplyHandler = std::function<void(const Value::Dictionary& reply)>;

  // The session is up; `paired` says whether a watch is there to talk to.
  virtual void sessionActivationDidComplete(WatchSession& /*session*/, bool /*paired*/) {}
  // A message that waits for an answer. Not calling `replyHandler` leaves
  // the sender without one (it gives up after its own timeout).
  virtual void sessionDidReceiveMessage(WatchSession& /*session*/, const Value::Dictionary& /*message*/,
                                        ReplyHandler /*replyHandler*/) {}
  // A message that expects no answer.
  virtual void sessionDidReceiveMessage(WatchSession& /*session*/, const Value::Dictionary& /*message*/) {}
};

class WatchSession {
 public:
  using ReplyHandler = WatchSessionDelegate::ReplyHandler;
  using ErrorHandler = std::function<void()>;

  virtual ~WatchSession() = default;

  // Starts the session; the delegate (held weakly) hears the activation.
  virtual void activate(std::weak_ptr<WatchSessionDelegate> delegate) = 0;
  // A watch is there to talk to.
  virtual bool isPaired() const = 0;
  // Sends to the watch. `replyHandler` gets the answer if the watch gives
  // one; `errorHandler` runs when the message could not be sent (no watch).
  // Either may be empty. Any thread.
  virtual void sendMessage(const Value::Dictionary& message, ReplyHandler replyHandler,
                           ErrorHandler errorHandler) = 0;
};

}  // namespace lumeo
