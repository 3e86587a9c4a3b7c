#include "web/resident.h"

#include <microhttpd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "common/log.h"
#include "common/response_ops.h"
#include "common/text.h"
#include "web/device_watch.h"
#include "web/event_ring.h"
#include "web/kept_answers.h"
#include "web/known_users.h"
#include "web/switch_workers.h"

namespace pavo {
namespace {

constexpr const char *kJsonType = "application/json";
constexpr std::size_t kRequestThreads = 2;
constexpr std::size_t kSwitchThreads = 3;
constexpr std::size_t kPieceMax = std::size_t{16} * 1024;  // of events, beyond which the next one waits
constexpr std::size_t kStreamBlock = 1024;

constexpr auto kTick = std::chrono::milliseconds(200);
constexpr auto kLinkPoll = std::chrono::milliseconds(500);

// Answers that show links, and those that show what a device brings with it when it joins.
constexpr std::array<std::string_view, 9> kLinkAnswers = {
    "swcfg_port",  "swcfg_ports_status", "interfaces_status",  "sw_lag_cfg",        "sw_lag_cfg_ex",
    "fiberOptics", "port_vendor_detect", "radius_port_config", "port_hardware_info"};
constexpr std::array<std::string_view, 6> kDeviceAnswers = {
    "vlan_list",       "swcfg_port",         "swcfg_ports_settings",
    "profile/list_ex", "port_vendor_detect", "special_interface_route"};

std::string newRun() {
    std::uint32_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
        number = static_cast<std::uint32_t>(platform::wallNow().tv_nsec);
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08x", number);
    return text.data();
}

[[gnu::format(printf, 2, 0)]] void logLibrary(void *, const char *format, va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    logDebug("[%s:%d] %s\n", printable(text.data()));
}

struct ResponseDeleter {
    void operator()(MHD_Response *response) const { MHD_destroy_response(response); }
};
using ResponsePtr = std::unique_ptr<MHD_Response, ResponseDeleter>;

using Text = std::shared_ptr<const std::string>;

// Shares the text; null when memory runs out.
ResponsePtr responseOf(const Text &text) {
    auto owner = std::make_unique<Text>(text);
    // The library does not change it.
    auto *const bytes = const_cast<char *>(text->data());
    ResponsePtr response(MHD_create_response_from_buffer_with_free_callback_cls(
        text->size(), bytes, [](void *kept) { const std::unique_ptr<Text> end(static_cast<Text *>(kept)); },
        owner.get()));
    if (response != nullptr)
        static_cast<void>(owner.release());
    return response;
}

void addHeader(MHD_Response &response, const char *name, const std::string &value) {
    MHD_add_response_header(&response, name, value.c_str());
}

std::optional<std::string> headerOf(MHD_Connection *connection, std::string_view name) {
    const char *value = nullptr;
    std::size_t size = 0;
    if (MHD_lookup_connection_value_n(connection, MHD_HEADER_KIND, name.data(), name.size(), &value, &size) !=
        MHD_YES)
        return std::nullopt;
    return value != nullptr ? std::string(value, size) : std::string();
}

// One request: where it is on its way, or its stream of events.
struct Request {
    explicit Request(std::string wanted) : target(std::move(wanted)) {}

    enum class Step { Head, Begin, User, Query, Answer };

    std::string target;  // path and query as they came
    Step step = Step::Head;
    MHD_Connection *connection = nullptr;
    std::string token;
    Session session;
    bool wantsEvents = false;
    std::size_t answer = 0;  // otherwise

    // Guarded by the server's mutex.
    bool isWoken = false;
    bool isSuspended = false;
    bool isStream = false;
    bool isEnded = false;  // the session is over

    // Of a stream, while it is not suspended the library's thread alone: guarded as well, since others look.
    EventFilter filter;
    std::uint64_t cursor = 0;
    std::string pending;  // not taken yet, from `sent` on
    std::size_t sent = 0;
    platform::Duration lastSent{};
    bool beats = false;  // it is time for a sign of life
};
using RequestPtr = std::shared_ptr<Request>;

}  // namespace

class Resident::Server {
  public:
    explicit Server(int socket);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    bool start();
    void takeNews() { kept_.takeNews(); }
    bool stop(std::chrono::milliseconds most);

  private:
    // --- requests; all on the library's threads
    MHD_Result serve(MHD_Connection *connection, const char *method, const RequestPtr &request);
    MHD_Result begin(Request &request, const char *method);
    bool knowsUser(const RequestPtr &request);
    MHD_Result giveAnswer(const RequestPtr &request);
    MHD_Result openStream(Request &request, const std::map<std::string, std::string> &query);
    MHD_Result refuse(Request &request, unsigned status, const Failure &failure);
    MHD_Result forbid(Request &request);
    MHD_Result send(Request &request, unsigned status, const Text &text,
                    const KeptAnswers::Given *given = nullptr);
    void end(Request &request);

    // --- waiting
    Wake wakerOf(const RequestPtr &request);
    // Whether the connection is suspended now; not when it has been woken already.
    bool suspend(Request &request);

    // --- events
    ssize_t readStream(Request &stream, char *out, std::size_t most);
    void tell(Event event);
    void wakeStreams(bool all);

    // --- the clock's thread
    void run();
    void tickStreams();
    void watchDevices();
    bool isLinkWanted();
    void pollLinks();
    void readLinks(SwitchClient &client);

    // --- what the library calls
    static void *onTarget(void *self, const char *target, MHD_Connection *connection);
    static MHD_Result onRequest(void *self, MHD_Connection *connection, const char *url, const char *method,
                                const char *version, const char *body, std::size_t *bodySize, void **state);
    static void onCompleted(void *self, MHD_Connection *connection, void **state,
                            MHD_RequestTerminationCode how);

    SwitchWorkers workers_;
    EventRing ring_;
    KnownUsers users_;
    KeptAnswers kept_;
    DeviceWatch devices_;

    std::mutex mutex_;  // never held while one of the above is called, but for the ring
    std::set<Request *> suspended_;
    std::set<Request *> streams_;
    bool isClosing_ = false;

    int socket_;
    int wakeUp_;
    MHD_Daemon *daemon_ = nullptr;
    std::thread clock_;
    std::atomic<bool> isStopping_ = false;

    // Of the clock's thread.
    platform::Duration sessionsChecked_{};
    platform::Duration linksAsked_{};
    // Of the job that reads links, of which there is one at a time.
    std::atomic<bool> readsLinks_ = false;
    std::atomic<bool> hasLinks_ = false;
    std::map<IfNum, bool> links_;
};

Resident::Server::Server(int socket)
    : workers_("pavo_webd", kSwitchThreads),
      ring_(newRun()),
      users_([this](const std::string &name) {
          workers_.add([this, name](SwitchClient &client) { users_.find(name, client); },
                       SwitchWorkers::Turn::Next);
      }),
      kept_({[this](std::size_t answer) {
                 workers_.add([this, answer](SwitchClient &client) { kept_.produce(answer, client); });
             },
             [this](const std::string &name) { tell(answerEvent(name)); }}),
      socket_(socket),
      wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Resident::Server::~Server() {
    if (wakeUp_ >= 0)
        close(wakeUp_);
    if (socket_ >= 0)
        close(socket_);
}

bool Resident::Server::start() {
    if (wakeUp_ < 0) {
        logError("[%s:%d] requests cannot be served: %s\n", std::strerror(errno));
        return false;
    }
    kept_.load();
    kept_.takeNews();
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr,
        onRequest, this, MHD_OPTION_EXTERNAL_LOGGER, logLibrary, nullptr, MHD_OPTION_LISTEN_SOCKET, socket_,
        MHD_OPTION_THREAD_POOL_SIZE, static_cast<unsigned>(kRequestThreads), MHD_OPTION_CONNECTION_LIMIT,
        static_cast<unsigned>(kStreamsMax + kRequestsMax), MHD_OPTION_CONNECTION_TIMEOUT,
        static_cast<unsigned>(kIdleMax.count()), MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeadMax,
        MHD_OPTION_URI_LOG_CALLBACK, onTarget, this, MHD_OPTION_NOTIFY_COMPLETED, onCompleted, this,
        MHD_OPTION_END);
    if (daemon_ == nullptr) {
        logError("[%s:%d] requests cannot be served: %s\n", std::strerror(errno));
        return false;
    }
    clock_ = std::thread([this] { run(); });
    return true;
}

bool Resident::Server::stop(std::chrono::milliseconds most) {
    isStopping_ = true;
    if (wakeUp_ >= 0)
        static_cast<void>(eventfd_write(wakeUp_, 1));
    if (clock_.joinable())
        clock_.join();
    if (daemon_ != nullptr)
        MHD_quiesce_daemon(daemon_);
    {
        const std::lock_guard lock(mutex_);
        isClosing_ = true;
        for (Request *const request : suspended_) {
            request->isSuspended = false;
            MHD_resume_connection(request->connection);
        }
        suspended_.clear();
    }
    users_.close();
    kept_.close();
    const bool areDone = workers_.stop(most);
    if (daemon_ != nullptr)
        MHD_stop_daemon(std::exchange(daemon_, nullptr));
    return areDone;
}

// --- what the library calls

void *Resident::Server::onTarget(void *, const char *target, MHD_Connection *) try {
    return std::make_unique<RequestPtr>(std::make_shared<Request>(target)).release();
} catch (const std::bad_alloc &) {
    return nullptr;
}

MHD_Result Resident::Server::onRequest(void *self, MHD_Connection *connection, const char *,
                                       const char *method, const char *, const char *, std::size_t *bodySize,
                                       void **state) try {
    if (*state == nullptr)
        return MHD_NO;
    const RequestPtr request = *static_cast<RequestPtr *>(*state);
    if (request->step == Request::Step::Head) {
        request->step = Request::Step::Begin;
        return MHD_YES;
    }
    if (*bodySize > 0) {
        *bodySize = 0;
        return MHD_YES;
    }
    return static_cast<Server *>(self)->serve(connection, method, request);
} catch (const std::exception &e) {
    logError("[%s:%d] %s\n", e.what());
    return MHD_NO;
}

void Resident::Server::onCompleted(void *self, MHD_Connection *, void **state, MHD_RequestTerminationCode) {
    const std::unique_ptr<RequestPtr> request(static_cast<RequestPtr *>(std::exchange(*state, nullptr)));
    if (request != nullptr)
        static_cast<Server *>(self)->end(**request);
}

// --- requests

void Resident::Server::end(Request &request) {
    const std::lock_guard lock(mutex_);
    suspended_.erase(&request);
    streams_.erase(&request);
    request.isSuspended = false;
    request.connection = nullptr;
}

// Steps are done again from where the request has waited.
MHD_Result Resident::Server::serve(MHD_Connection *connection, const char *method,
                                   const RequestPtr &request) {
    using Step = Request::Step;
    if (request->step == Step::Begin) {
        request->connection = connection;
        const MHD_Result result = begin(*request, method);
        if (request->step == Step::Begin)
            return result;
        if (!knowsUser(request))
            return MHD_YES;
    }
    if (request->step == Step::User) {
        request->step = Step::Query;
        // What the switch does not tell ends no session.
        if (!isStillTheUser(request->token, request->session,
                            [this](const std::string &name) { return users_.recall(name); }))
            return forbid(*request);
    }
    if (request->step == Step::Query) {
        const auto question = request->target.find('?');
        auto query =
            parseQuery(question != std::string::npos ? std::string_view(request->target).substr(question + 1)
                                                     : std::string_view());
        if (!query) {
            logError("[%s:%d] %s: %s\n", printable(request->target), query.error().reason);
            return refuse(*request, MHD_HTTP_OK, query.error());
        }
        if (request->wantsEvents)
            return openStream(*request, *query);
        request->step = Step::Answer;
        return giveAnswer(request);
    }
    const auto given = kept_.give(request->answer);
    return send(*request, MHD_HTTP_OK, given.text, &given);
}

// To the step behind, unless the answer is given already.
MHD_Result Resident::Server::begin(Request &request, const char *method) {
    const std::string path = plainUri(request.target.substr(0, request.target.find('?')));
    const auto answer = kept_.find(path);
    request.answer = answer.value_or(0);
    request.wantsEvents = path == kEventsPath;
    if (!answer && !request.wantsEvents)
        return refuse(request, MHD_HTTP_NOT_FOUND, {ResultCode::ApiNotFound, ""});
    if (std::string_view(method) != MHD_HTTP_METHOD_GET)
        return refuse(request, MHD_HTTP_METHOD_NOT_ALLOWED,
                      {ResultCode::IllegalRequest, "nothing but GET is served here"});
    const bool isPoll = request.wantsEvents || headerOf(request.connection, "Refresh");
    request.token = headerOf(request.connection, "Session").value_or("");
    auto session = checkSession(
        request.token, {Access::User, HttpMethod::Get, isPoll ? SessionUse::Poll : SessionUse::Extend});
    if (!session)
        return forbid(request);
    request.session = *std::move(session);
    request.step = Request::Step::User;
    return MHD_YES;
}

// False when the connection waits.
bool Resident::Server::knowsUser(const RequestPtr &request) {
    return users_.ask(request->session.user, wakerOf(request)) || !suspend(*request);
}

MHD_Result Resident::Server::giveAnswer(const RequestPtr &request) {
    {
        const std::lock_guard lock(mutex_);
        request->isWoken = false;
    }
    const auto known = kept_.ask(request->answer, wakerOf(request));
    if (!known && suspend(*request))
        return MHD_YES;
    const auto given = known ? *known : kept_.give(request->answer);
    return send(*request, MHD_HTTP_OK, given.text, &given);
}

MHD_Result Resident::Server::forbid(Request &request) {
    logError("[%s:%d] 403 Forbidden\n");
    const ResponsePtr response(MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT));
    return response != nullptr ? MHD_queue_response(request.connection, MHD_HTTP_FORBIDDEN, response.get())
                               : MHD_NO;
}

MHD_Result Resident::Server::refuse(Request &request, unsigned status, const Failure &failure) {
    return send(request, status, std::make_shared<const std::string>(failureEnvelope(failure) + '\n'));
}

MHD_Result Resident::Server::send(Request &request, unsigned status, const Text &text,
                                  const KeptAnswers::Given *given) {
    const ResponsePtr response = responseOf(text);
    if (response == nullptr)
        return MHD_NO;
    addHeader(*response, MHD_HTTP_HEADER_CONTENT_TYPE, kJsonType);
    if (given != nullptr)
        addHeader(*response, MHD_HTTP_HEADER_AGE, std::to_string(given->age.count()));
    if (given != nullptr && given->isOld)
        addHeader(*response, MHD_HTTP_HEADER_WARNING, "110 - \"Response is Stale\"");
    if (status == MHD_HTTP_METHOD_NOT_ALLOWED)
        addHeader(*response, MHD_HTTP_HEADER_ALLOW, MHD_HTTP_METHOD_GET);
    if (status == MHD_HTTP_SERVICE_UNAVAILABLE)
        addHeader(*response, MHD_HTTP_HEADER_RETRY_AFTER, "5");
    return MHD_queue_response(request.connection, status, response.get());
}

// --- waiting

Wake Resident::Server::wakerOf(const RequestPtr &request) {
    return [this, request] {
        const std::lock_guard lock(mutex_);
        request->isWoken = true;
        if (std::exchange(request->isSuspended, false)) {
            suspended_.erase(request.get());
            MHD_resume_connection(request->connection);
        }
    };
}

bool Resident::Server::suspend(Request &request) {
    const std::lock_guard lock(mutex_);
    if (request.isWoken || isClosing_)
        return false;
    suspended_.insert(&request);
    request.isSuspended = true;
    MHD_suspend_connection(request.connection);
    return true;
}

// --- events

MHD_Result Resident::Server::openStream(Request &request, const std::map<std::string, std::string> &query) {
    auto filter = EventFilter::parse(query);
    if (!filter) {
        logError("[%s:%d] %s: %s\n", kEventsPath, filter.error().reason);
        return refuse(request, MHD_HTTP_BAD_REQUEST, filter.error());
    }
    request.filter = *std::move(filter);
    const auto last = headerOf(request.connection, "Last-Event-ID");
    const auto cursor = last ? ring_.resume(*last) : std::nullopt;
    request.cursor = cursor.value_or(ring_.next());
    request.pending = ring_.greeting(request.cursor);
    if (last && !last->empty() && !cursor)
        request.pending += EventRing::missed();
    request.lastSent = platform::monotonicNow();
    {
        const std::lock_guard lock(mutex_);
        const auto own = std::ranges::count_if(
            streams_, [&](const Request *one) { return one->session.user == request.session.user; });
        if (streams_.size() < kStreamsMax && own < kStreamsOfUserMax && !isClosing_)
            request.isStream = streams_.insert(&request).second;
    }
    if (!request.isStream)
        return refuse(request, MHD_HTTP_SERVICE_UNAVAILABLE,
                      {ResultCode::Failed, "too many clients listen to events"});
    // What has changed since somebody listened to links is told at once.
    static_cast<void>(eventfd_write(wakeUp_, 1));

    // The reader outlives neither the request nor the server.
    struct Reader {
        Server *server;
        Request *stream;
    };
    auto reader = std::make_unique<Reader>(this, &request);
    const ResponsePtr response(MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, kStreamBlock,
        [](void *self, std::uint64_t, char *out, std::size_t most) -> ssize_t {
            try {
                const auto *const one = static_cast<Reader *>(self);
                return one->server->readStream(*one->stream, out, most);
            } catch (const std::exception &e) {
                logError("[%s:%d] %s\n", e.what());
                return MHD_CONTENT_READER_END_WITH_ERROR;
            }
        },
        reader.get(), [](void *self) { const std::unique_ptr<Reader> end(static_cast<Reader *>(self)); }));
    if (response == nullptr)
        return MHD_NO;
    static_cast<void>(reader.release());
    addHeader(*response, MHD_HTTP_HEADER_CONTENT_TYPE, kEventStream);
    addHeader(*response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    return MHD_queue_response(request.connection, MHD_HTTP_OK, response.get());
}

ssize_t Resident::Server::readStream(Request &stream, char *out, std::size_t most) {
    const std::lock_guard lock(mutex_);
    if (isClosing_ || stream.isEnded)
        return MHD_CONTENT_READER_END_OF_STREAM;
    if (stream.sent == stream.pending.size()) {
        auto [text, missed] = ring_.read(stream.cursor, stream.filter, kPieceMax);
        stream.pending = (missed ? EventRing::missed() : "") + std::move(text);
        if (stream.pending.empty() && stream.beats)
            stream.pending = ":\n\n";
        stream.sent = 0;
        stream.beats = false;
    }
    if (stream.pending.empty()) {
        stream.pending.shrink_to_fit();
        suspended_.insert(&stream);
        stream.isSuspended = true;
        MHD_suspend_connection(stream.connection);
        return 0;
    }
    const std::size_t size = stream.pending.copy(out, most, stream.sent);
    stream.sent += size;
    stream.lastSent = platform::monotonicNow();
    return static_cast<ssize_t>(size);
}

void Resident::Server::tell(Event event) {
    if (event.data.empty())
        return;  // memory has run out
    ring_.add(std::move(event));
    wakeStreams(true);
}

// All, or those that have to end or to give a sign of life.
void Resident::Server::wakeStreams(bool all) {
    const std::lock_guard lock(mutex_);
    for (Request *const stream : streams_)
        if (stream->isSuspended && (all || stream->isEnded || stream->beats)) {
            stream->isSuspended = false;
            suspended_.erase(stream);
            MHD_resume_connection(stream->connection);
        }
}

// --- the clock's thread

void Resident::Server::run() {
    const auto tick = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(static_cast<double>(kTick.count()) / platform::clockRate()));
    std::array<pollfd, 2> wanted{{{wakeUp_, POLLIN, 0}, {devices_.descriptor(), POLLIN, 0}}};
    while (!isStopping_) {
        try {
            kept_.tick();
            users_.tick();
            watchDevices();
            tickStreams();
            pollLinks();
        } catch (const std::exception &e) {
            logError("[%s:%d] %s\n", e.what());
        }
        poll(wanted.data(), wanted.size(), static_cast<int>(tick));
        eventfd_t ignored = 0;
        static_cast<void>(eventfd_read(wakeUp_, &ignored));
    }
}

void Resident::Server::tickStreams() {
    std::set<std::string> wanted;
    std::map<std::string, Session> sessions;
    const auto now = platform::monotonicNow();
    {
        const std::lock_guard lock(mutex_);
        for (Request *const stream : streams_) {
            stream->beats = stream->beats || now - stream->lastSent >= kHeartbeat;
            if (stream->filter.kinds.contains(EventKind::Answer))
                wanted.insert(stream->filter.answers.begin(), stream->filter.answers.end());
            sessions.emplace(stream->token, stream->session);
        }
    }
    for (const auto &name : wanted)
        kept_.look(name);
    wakeStreams(false);
    // The switch is asked in time, and nobody waits for what it says.
    for (const auto &[token, session] : sessions)
        users_.ask(session.user, nullptr);
    if (now - sessionsChecked_ < kSessionCheck)
        return;
    sessionsChecked_ = now;
    std::set<std::string> over;
    for (const auto &[token, session] : sessions)
        if (const auto current = checkSession(token, {Access::User, HttpMethod::Get, SessionUse::Poll});
            !current ||
            !isStillTheUser(token, *current, [this](const std::string &name) { return users_.recall(name); }))
            over.insert(token);
    if (over.empty())
        return;
    {
        const std::lock_guard lock(mutex_);
        for (Request *const stream : streams_)
            stream->isEnded = stream->isEnded || over.contains(stream->token);
    }
    wakeStreams(false);
}

void Resident::Server::watchDevices() {
    auto events = devices_.look();
    if (events.empty())
        return;
    kept_.expire(kDeviceAnswers);
    for (auto &event : events)
        tell(std::move(event));
}

bool Resident::Server::isLinkWanted() {
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(
        streams_, [](const Request *one) { return one->filter.kinds.contains(EventKind::Link); });
}

void Resident::Server::pollLinks() {
    const auto now = platform::monotonicNow();
    if (now - linksAsked_ < kLinkPoll || readsLinks_)
        return;
    // Once without anybody, so that changes have something to be changes of.
    if (hasLinks_ && !isLinkWanted())
        return;
    linksAsked_ = now;
    readsLinks_ = true;
    workers_.add([this](SwitchClient &client) {
        try {
            readLinks(client);
        } catch (const std::exception &e) {
            logError("[%s:%d] %s\n", e.what());
        }
        readsLinks_ = false;
    });
}

// A port that does not tell has the link that it had.
void Resident::Server::readLinks(SwitchClient &client) {
    if (!client.isConnected())
        return;
    const Switch sw = client.get();
    std::map<IfNum, bool> now;
    auto ports = sw.ports();
    for (const IfNum port : ports)
        if (const auto link = sw.hasLink(port))
            now.emplace(port, *link);
    auto events = linkEvents(links_, now);
    for (const auto &[port, isUp] : now)
        links_[port] = isUp;
    hasLinks_ = hasLinks_ || !now.empty();
    if (events.empty())
        return;
    kept_.expire(kLinkAnswers);
    for (auto &event : events)
        tell(std::move(event));
}

// --- from outside

Resident::Resident(int socket) : server_(std::make_unique<Server>(socket)) {}
Resident::~Resident() = default;

bool Resident::start() {
    return server_->start();
}

void Resident::takeNews() try { server_->takeNews(); } catch (const std::exception &e) {
    logError("[%s:%d] %s\n", e.what());
}

bool Resident::stop(std::chrono::milliseconds most) {
    return server_->stop(most);
}

}  // namespace pavo
