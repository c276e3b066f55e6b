#pragma once

// Connecting to a server the way the desktop does: gvfs mounts the location
// of a URL (ftp://, sftp://, smb://, dav:// …) through GIO, and the folder
// then appears as a local path under gvfs's FUSE view
// ($XDG_RUNTIME_DIR/gvfs/...), where any program can read it.
//
// Logging in: a password in the URL is given to the server without asking;
// with no user in the URL and a server that offers anonymous access, that is
// tried first; otherwise (or when that is refused) the user is asked through
// the ServerLoginPrompt, again after a refused answer. A password from the
// URL that the server refuses is a failure, not a question.
//
// Each mount runs a GLib main context of its own on the calling thread and
// blocks that thread (never the UI thread) until the server is mounted, the
// mount fails, runs out of time (the time the user spends answering does not
// count) or is cancelled. The URL's password never appears in a log or a
// failure text.

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "filemanager/ServerLoginPrompt.h"

namespace jorvane {

class GioServerMount {
public:
    struct Options {
        // Connecting and logging in, without the time questions stay open.
        std::chrono::milliseconds timeout{30000};
        // How long one question may stay unanswered.
        std::chrono::milliseconds answerTimeout{300000};
        // Questions after which a server that keeps refusing is given up.
        int maxQuestions = 5;
    };

    struct Outcome {
        // Mounted now or before.
        bool mounted = false;
        // The URL's location through gvfs's FUSE view, when that exists.
        std::optional<std::string> localPath;
        // Why not, in a short text for the user (GIO's own where it has one).
        std::string failure;
        // Given up by cancel() or by the user's Cancel.
        bool cancelled = false;
    };

    // Without a prompt, servers that need an answer from the user fail.
    explicit GioServerMount(std::shared_ptr<ServerLoginPrompt> prompt = nullptr);
    GioServerMount(std::shared_ptr<ServerLoginPrompt> prompt, Options options);
    ~GioServerMount();
    GioServerMount(const GioServerMount&) = delete;
    GioServerMount& operator=(const GioServerMount&) = delete;

    // Mounts the location of `url`; returns when done (see above).
    Outcome mount(const std::string& url);
    // Gives up every mount running now; they return soon, cancelled. Any thread.
    void cancel();

    // The URL without its password, for logs and texts; nothing when it is
    // not a URL.
    static std::optional<std::string> withoutPassword(const std::string& url);
    // The address gvfs mounts for `url`: a web address's WebDAV share
    // (http -> dav, https -> davs), else the address itself.
    static std::string asMountable(const std::string& url);

    struct Attempt;

private:
    std::shared_ptr<ServerLoginPrompt> prompt_;
    Options options_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<Attempt>> running_;
};

}  // namespace jorvane
