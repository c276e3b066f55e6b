#include "platform/linux/GioServerMount.h"

#include <sys/stat.h>
#include <algorithm>
#include <atomic>

#include <gio/gio.h>

#include "util/Diagnostics.h"

namespace jorvane {

namespace {

constexpr const char* kLogDomain = "Mount";
// After a cancellation, how long GIO gets to report back before the mount
// is abandoned.
constexpr guint kCancelGraceMs = 5000;

constexpr const char* kCancelledText = "Connection cancelled";
constexpr const char* kTimedOutText = "The server did not answer in time";
constexpr const char* kRefusedText = "The server refused the login";
constexpr const char* kUnansweredText = "The login question was not answered in time";
constexpr const char* kNoPromptText = "The server asks for a login";

std::string text(const char* value) { return value ? value : ""; }

std::string unescaped(const char* value) {
    if (!value) return {};
    char* plain = g_uri_unescape_string(value, nullptr);
    // Escapes that make no valid text are kept as written.
    std::string result = plain ? plain : value;
    g_free(plain);
    return result;
}

bool supportsScheme(const std::string& scheme) {
    const gchar* const* schemes = g_vfs_get_supported_uri_schemes(g_vfs_get_default());
    for (; schemes && *schemes; ++schemes)
        if (g_ascii_strcasecmp(*schemes, scheme.c_str()) == 0) return true;
    return false;
}

}  // namespace

// One mount in progress. Everything but `cancelRequested`, `cancellable`,
// `context` and what `mutex` guards belongs to the mounting thread.
struct GioServerMount::Attempt : std::enable_shared_from_this<GioServerMount::Attempt> {
    GMainContext* context = nullptr;
    GCancellable* cancellable = nullptr;
    GMountOperation* operation = nullptr;
    GFile* file = nullptr;
    std::shared_ptr<ServerLoginPrompt> prompt;
    Options options;

    std::string urlUser;
    std::string urlPassword;
    bool hasUrlUser = false;
    bool hasUrlPassword = false;
    bool urlPasswordGiven = false;
    bool anonymousTried = false;
    int questions = 0;

    bool finished = false;
    bool mounted = false;
    bool refused = false;
    bool userCancelled = false;
    bool timedOut = false;
    bool unanswered = false;
    bool awaitingReply = false;
    std::string failure;
    GSource* timer = nullptr;
    GSource* answerTimer = nullptr;
    GSource* graceTimer = nullptr;
    std::atomic<bool> cancelRequested{false};

    std::mutex mutex;
    std::optional<ServerLoginPrompt::Ticket> ticket;
    bool closed = false;  // no more posts to the context

    ~Attempt() {
        if (operation) {
            g_signal_handlers_disconnect_by_data(operation, this);
            g_object_unref(operation);
        }
        if (file) g_object_unref(file);
        if (cancellable) g_object_unref(cancellable);
        if (context) g_main_context_unref(context);
    }

    // ---- timers, all on the mounting thread's context

    static GSource* startTimer(GSource*& slot, std::chrono::milliseconds after, GSourceFunc onFire, Attempt* self) {
        stopTimer(slot);
        slot = g_timeout_source_new(static_cast<guint>(std::max<std::int64_t>(after.count(), 1)));
        g_source_set_callback(slot, onFire, self, nullptr);
        g_source_attach(slot, self->context);
        return slot;
    }
    static void stopTimer(GSource*& slot) {
        if (!slot) return;
        g_source_destroy(slot);
        g_source_unref(slot);
        slot = nullptr;
    }

    void armConnectTimer() {
        startTimer(
            timer, options.timeout,
            [](gpointer data) -> gboolean {
                auto* self = static_cast<Attempt*>(data);
                self->timedOut = true;
                g_cancellable_cancel(self->cancellable);
                self->armGraceTimer();
                g_source_unref(self->timer);
                self->timer = nullptr;
                return G_SOURCE_REMOVE;
            },
            this);
    }

    void armGraceTimer() {
        if (graceTimer) return;
        startTimer(
            graceTimer, std::chrono::milliseconds(kCancelGraceMs),
            [](gpointer data) -> gboolean {
                // GIO never reported back: give up waiting for it.
                auto* self = static_cast<Attempt*>(data);
                self->finished = true;
                if (self->failure.empty()) self->failure = kTimedOutText;
                g_source_unref(self->graceTimer);
                self->graceTimer = nullptr;
                return G_SOURCE_REMOVE;
            },
            this);
    }

    // ---- questions

    // Runs `work` on the mounting thread, unless the mount is over.
    void post(std::function<void(Attempt&)> work) {
        std::lock_guard lock(mutex);
        if (closed) return;
        auto* job =
            new std::pair<std::shared_ptr<Attempt>, std::function<void(Attempt&)>>(shared_from_this(), std::move(work));
        // Always through the loop, never at once: a reply may come from
        // inside the signal that asked.
        GSource* idle = g_idle_source_new();
        g_source_set_callback(
            idle,
            [](gpointer data) -> gboolean {
                auto* pair = static_cast<std::pair<std::shared_ptr<Attempt>, std::function<void(Attempt&)>>*>(data);
                pair->second(*pair->first);
                return G_SOURCE_REMOVE;
            },
            job,
            [](gpointer data) {
                delete static_cast<std::pair<std::shared_ptr<Attempt>, std::function<void(Attempt&)>>*>(data);
            });
        g_source_attach(idle, context);
        g_source_unref(idle);
    }

    void waitForAnswer(ServerLoginPrompt::Ticket issued) {
        {
            std::lock_guard lock(mutex);
            ticket = issued;
        }
        // A reply may have come already (a prompt that cannot show answers at once).
        if (!awaitingReply) forgetTicket();
    }

    void beginQuestion() {
        awaitingReply = true;
        // The user's time does not count against the server.
        stopTimer(timer);
        startTimer(
            answerTimer, options.answerTimeout,
            [](gpointer data) -> gboolean {
                auto* self = static_cast<Attempt*>(data);
                g_source_unref(self->answerTimer);
                self->answerTimer = nullptr;
                self->unanswered = true;
                self->abandonQuestion();
                return G_SOURCE_REMOVE;
            },
            this);
    }

    // The question is over: back to the server's clock.
    bool endQuestion() {
        if (!awaitingReply || finished) return false;
        awaitingReply = false;
        stopTimer(answerTimer);
        forgetTicket();
        armConnectTimer();
        return true;
    }

    void forgetTicket() {
        std::optional<ServerLoginPrompt::Ticket> open;
        {
            std::lock_guard lock(mutex);
            open.swap(ticket);
        }
        if (open && prompt) prompt->withdraw(*open);
    }

    // Takes the open question away and tells GIO the login is off.
    void abandonQuestion() {
        if (!awaitingReply) return;
        endQuestion();
        g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
    }

    void answer(const ServerLoginAnswer& reply) {
        if (!endQuestion()) return;
        switch (reply.choice) {
            case ServerLoginAnswer::Choice::cancel:
                userCancelled = true;
                g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
                return;
            case ServerLoginAnswer::Choice::anonymous:
                anonymousTried = true;
                g_mount_operation_set_anonymous(operation, TRUE);
                break;
            case ServerLoginAnswer::Choice::connect:
                g_mount_operation_set_anonymous(operation, FALSE);
                g_mount_operation_set_username(operation, reply.user.c_str());
                g_mount_operation_set_password(operation, reply.password.c_str());
                if (!reply.domain.empty()) g_mount_operation_set_domain(operation, reply.domain.c_str());
                g_mount_operation_set_password_save(
                    operation, reply.remember ? G_PASSWORD_SAVE_PERMANENTLY : G_PASSWORD_SAVE_NEVER);
                break;
        }
        g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
    }

    void choice(std::optional<std::size_t> chosen) {
        if (!endQuestion()) return;
        if (!chosen) {
            userCancelled = true;
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
            return;
        }
        g_mount_operation_set_choice(operation, static_cast<int>(*chosen));
        g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
    }

    // ---- GIO's signals

    void onAskPassword(const char* message, const char* defaultUser, const char* defaultDomain,
                       GAskPasswordFlags flags) {
        if (finished || cancelRequested.load()) {
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
            return;
        }
        // A password in the URL is the user's answer, given once: asked
        // again, the server refused it.
        if (hasUrlPassword) {
            if (urlPasswordGiven) {
                refused = true;
                g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
                return;
            }
            urlPasswordGiven = true;
            g_mount_operation_set_username(operation, hasUrlUser ? urlUser.c_str() : defaultUser);
            g_mount_operation_set_password(operation, urlPassword.c_str());
            g_mount_operation_set_password_save(operation, G_PASSWORD_SAVE_NEVER);
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
            return;
        }
        // Nobody named: anonymous access first, where the server offers it.
        const bool anonymousOffered = (flags & G_ASK_PASSWORD_ANONYMOUS_SUPPORTED) != 0;
        if (!hasUrlUser && anonymousOffered && !anonymousTried) {
            anonymousTried = true;
            g_mount_operation_set_anonymous(operation, TRUE);
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
            return;
        }
        if (!prompt || questions >= options.maxQuestions) {
            refused = questions > 0 || anonymousTried;
            if (!prompt && !refused) failure = kNoPromptText;
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
            return;
        }
        ++questions;
        ServerLoginRequest request;
        request.message = text(message);
        request.user = hasUrlUser ? urlUser : text(defaultUser);
        request.domain = text(defaultDomain);
        request.needsUser = (flags & G_ASK_PASSWORD_NEED_USERNAME) != 0;
        request.needsPassword = (flags & G_ASK_PASSWORD_NEED_PASSWORD) != 0;
        request.needsDomain = (flags & G_ASK_PASSWORD_NEED_DOMAIN) != 0;
        // Anonymous access that was refused is not offered again.
        request.anonymousAllowed = anonymousOffered && !anonymousTried;
        request.savingAllowed = (flags & G_ASK_PASSWORD_SAVING_SUPPORTED) != 0;
        request.retry = questions > 1;
        beginQuestion();
        auto self = shared_from_this();
        waitForAnswer(prompt->ask(request, [self](ServerLoginAnswer reply) {
            self->post([reply = std::move(reply)](Attempt& attempt) { attempt.answer(reply); });
        }));
    }

    void onAskQuestion(const char* message, const char** choices) {
        if (finished || cancelRequested.load() || !prompt || questions >= options.maxQuestions) {
            if (!prompt && failure.empty()) failure = text(message);
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
            return;
        }
        ++questions;
        ServerQuestion question;
        question.message = text(message);
        for (const char** choice = choices; choice && *choice; ++choice) question.choices.emplace_back(*choice);
        beginQuestion();
        auto self = shared_from_this();
        waitForAnswer(prompt->choose(question, [self](std::optional<std::size_t> chosen) {
            self->post([chosen](Attempt& attempt) { attempt.choice(chosen); });
        }));
    }

    // The server side gave up its question.
    void onAborted() {
        if (!awaitingReply) return;
        endQuestion();
    }

    void onMounted(GAsyncResult* result) {
        GError* error = nullptr;
        if (g_file_mount_enclosing_volume_finish(file, result, &error) ||
            g_error_matches(error, G_IO_ERROR, G_IO_ERROR_ALREADY_MOUNTED)) {
            mounted = true;
        } else if (failure.empty()) {
            if (cancelRequested.load() || userCancelled)
                failure = kCancelledText;
            else if (timedOut)
                failure = kTimedOutText;
            else if (unanswered)
                failure = kUnansweredText;
            else if (refused)
                failure = kRefusedText;
            else
                failure = error && error->message ? error->message : "The server could not be mounted";
        }
        g_clear_error(&error);
        finished = true;
    }

    // The context this attempt runs on becomes the thread's default, and the
    // mount operation's questions come to this attempt.
    void open(const std::string& shown) {
        context = g_main_context_new();
        g_main_context_push_thread_default(context);
        cancellable = g_cancellable_new();
        operation = g_mount_operation_new();
        file = g_file_new_for_uri(shown.c_str());
        g_signal_connect(operation, "ask-password",
                         G_CALLBACK(+[](GMountOperation*, const char* message, const char* user, const char* domain,
                                        GAskPasswordFlags flags, gpointer data) {
                             static_cast<Attempt*>(data)->onAskPassword(message, user, domain, flags);
                         }),
                         this);
        g_signal_connect(operation, "ask-question",
                         G_CALLBACK(+[](GMountOperation*, const char* message, const char** choices, gpointer data) {
                             static_cast<Attempt*>(data)->onAskQuestion(message, choices);
                         }),
                         this);
        g_signal_connect(operation, "aborted",
                         G_CALLBACK(+[](GMountOperation*, gpointer data) { static_cast<Attempt*>(data)->onAborted(); }),
                         this);
    }

    // Runs the context until GIO reports; a cancel gives up the question
    // asked and leaves GIO a grace period to end on its own.
    void runUntilFinished() {
        bool graceArmed = false;
        while (!finished) {
            g_main_context_iteration(context, TRUE);
            if (cancelRequested.load() && !graceArmed) {
                graceArmed = true;
                abandonQuestion();
                armGraceTimer();
            }
        }
    }

    // Nothing more is posted to the context; it is drained and given back.
    void close() {
        {
            std::lock_guard lock(mutex);
            closed = true;
        }
        forgetTicket();
        stopTimer(timer);
        stopTimer(answerTimer);
        stopTimer(graceTimer);
        // Replies posted before the close, and GIO's own last words.
        for (int round = 0; round < 100 && g_main_context_iteration(context, FALSE); ++round) {
        }
        g_main_context_pop_thread_default(context);
    }
};

GioServerMount::GioServerMount(std::shared_ptr<ServerLoginPrompt> prompt)
    : GioServerMount(std::move(prompt), Options{}) {}

GioServerMount::GioServerMount(std::shared_ptr<ServerLoginPrompt> prompt, Options options)
    : prompt_(std::move(prompt)), options_(options) {}

GioServerMount::~GioServerMount() = default;

std::optional<std::string> GioServerMount::withoutPassword(const std::string& url) {
    GUri* uri =
        g_uri_parse(url.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_HAS_PASSWORD | G_URI_FLAGS_ENCODED), nullptr);
    if (!uri) return std::nullopt;
    char* shown = g_uri_to_string_partial(uri, G_URI_HIDE_PASSWORD);
    std::optional<std::string> result = shown ? std::optional<std::string>(shown) : std::nullopt;
    g_free(shown);
    g_uri_unref(uri);
    return result;
}

std::string GioServerMount::asMountable(const std::string& url) {
    // gvfs reads http(s) addresses as single files; a folder on a web server
    // is its WebDAV share.
    if (url.starts_with("http://")) return "dav://" + url.substr(7);
    if (url.starts_with("https://")) return "davs://" + url.substr(8);
    return url;
}

GioServerMount::Outcome GioServerMount::mount(const std::string& address) {
    Outcome outcome;
    const std::string url = asMountable(address);
    GUri* uri =
        g_uri_parse(url.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_HAS_PASSWORD | G_URI_FLAGS_ENCODED), nullptr);
    if (!uri || !g_uri_get_host(uri) || !*g_uri_get_host(uri)) {
        if (uri) g_uri_unref(uri);
        outcome.failure = "Not a server address";
        log::inDomain(log::Warn, kLogDomain, "cannot mount: not a server address");
        return outcome;
    }
    auto attempt = std::make_shared<Attempt>();
    attempt->prompt = prompt_;
    attempt->options = options_;
    attempt->hasUrlUser = g_uri_get_user(uri) != nullptr && *g_uri_get_user(uri) != '\0';
    attempt->urlUser = unescaped(g_uri_get_user(uri));
    attempt->hasUrlPassword = g_uri_get_password(uri) != nullptr;
    attempt->urlPassword = unescaped(g_uri_get_password(uri));
    const std::string scheme = text(g_uri_get_scheme(uri));
    char* hidden = g_uri_to_string_partial(uri, G_URI_HIDE_PASSWORD);
    const std::string shown = text(hidden);
    g_free(hidden);
    g_uri_unref(uri);

    if (!supportsScheme(scheme)) {
        outcome.failure = "No support for " + scheme + ":// addresses (gvfs-backends is not installed)";
        log::inDomain(log::Warn, kLogDomain, "cannot mount %s: %s", shown.c_str(), outcome.failure.c_str());
        return outcome;
    }

    attempt->open(shown);
    {
        std::lock_guard lock(mutex_);
        running_.push_back(attempt);
    }

    log::inDomain(log::Debug, kLogDomain, "mounting %s", shown.c_str());
    attempt->armConnectTimer();
    // The callback's reference keeps the attempt alive for a GIO that
    // reports back after the attempt was abandoned.
    g_file_mount_enclosing_volume(
        attempt->file, G_MOUNT_MOUNT_NONE, attempt->operation, attempt->cancellable,
        [](GObject*, GAsyncResult* result, gpointer data) {
            auto* held = static_cast<std::shared_ptr<Attempt>*>(data);
            if (!(*held)->finished) (*held)->onMounted(result);
            delete held;
        },
        new std::shared_ptr<Attempt>(attempt));

    attempt->runUntilFinished();
    {
        std::lock_guard lock(mutex_);
        std::erase(running_, attempt);
    }
    attempt->close();

    outcome.mounted = attempt->mounted;
    outcome.cancelled = !attempt->mounted && (attempt->cancelRequested.load() || attempt->userCancelled);
    if (attempt->mounted) {
        char* path = g_file_get_path(attempt->file);
        struct stat info {};
        if (path && stat(path, &info) == 0) outcome.localPath = path;
        g_free(path);
        log::inDomain(log::Info, kLogDomain, "mounted %s%s%s", shown.c_str(), outcome.localPath ? " at " : "",
                      outcome.localPath ? outcome.localPath->c_str() : "");
    } else {
        outcome.failure = attempt->failure.empty() ? std::string(kCancelledText) : attempt->failure;
        log::inDomain(outcome.cancelled ? log::Info : log::Warn, kLogDomain, "cannot mount %s: %s", shown.c_str(),
                      outcome.failure.c_str());
    }
    return outcome;
}

void GioServerMount::cancel() {
    std::vector<std::shared_ptr<Attempt>> running;
    {
        std::lock_guard lock(mutex_);
        running = running_;
    }
    for (const std::shared_ptr<Attempt>& attempt : running) {
        attempt->cancelRequested.store(true);
        g_cancellable_cancel(attempt->cancellable);
        g_main_context_wakeup(attempt->context);
    }
}

}  // namespace jorvane
