#include "ssh_peer.hpp"

#include <base64.hpp>

#include <libssh/callbacks.h>
#include <libssh/libssh.h>
#include <libssh/server.h>

#include <algorithm>
#include <list>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

namespace {

std::string blob_of(ssh_key key)
{
    char* text = nullptr;
    ssh_pki_export_pubkey_base64(key, &text);
    const std::string blob = qrftp::from_base64(text);
    ssh_string_free_char(text);
    return blob;
}

ssh_key generate(const std::string& name)
{
    const ssh_keytypes_e type = name == "rsa"     ? SSH_KEYTYPE_RSA
                                : name == "ecdsa" ? SSH_KEYTYPE_ECDSA_P256
                                                  : SSH_KEYTYPE_ED25519;
    ssh_key key = nullptr;
    if (ssh_pki_generate(type, name == "rsa" ? 2048 : 256, &key) != SSH_OK) {
        throw std::runtime_error("no key");
    }
    return key;
}

} // namespace

/// One client's connection, served on a thread of its own. libssh calls back from within `serve`.
class ssh_peer::connection {
public:
    connection(ssh_peer& peer, int socket)
        : peer_(peer), script_(peer.script_), socket_(socket), session_(ssh_new())
    {
    }
    connection(const connection&) = delete;
    ~connection() { ssh_free(session_); }

    void serve();

private:
    static connection& self(void* user) { return *static_cast<connection*>(user); }
    bool start();
    int check_password(const char* password);
    int check_key(ssh_key key, char state);
    int interact(ssh_message message);
    int ask(ssh_message message);
    std::string answers();
    int refuse(std::string tried);
    int accept(std::string tried, int method);
    struct stream {
        connection& owner;
        ssh_channel channel;
        ssh_channel_callbacks_struct callbacks{};
        channel_handler handler{};
        std::string pending{};

        int start_subsystem();
        int take(std::string_view bytes);
        void send_pending();
    };
    ssh_channel open_channel();
    int methods() const;

    ssh_peer& peer_;
    const script& script_;
    int socket_;
    ssh_session session_;
    ssh_server_callbacks_struct server_callbacks_{};
    std::list<stream> streams_{};
    std::size_t round_ = 0;
    int accepted_methods_ = 0;
    bool cut_ = false;
};

void ssh_peer::connection::serve()
{
    cut_ = script_.cut_at == cut::greeting;
    server_callbacks_.size = sizeof server_callbacks_;
    server_callbacks_.userdata = this;
    server_callbacks_.auth_none_function = [](ssh_session, const char*, void* user) {
        return self(user).refuse("none");
    };
    server_callbacks_.auth_password_function = [](ssh_session, const char*, const char* password, void* user) {
        return self(user).check_password(password);
    };
    server_callbacks_.auth_pubkey_function = [](ssh_session, const char*, ssh_key key, char state, void* user) {
        return self(user).check_key(key, state);
    };
    server_callbacks_.channel_open_request_session_function = [](ssh_session, void* user) {
        return self(user).open_channel();
    };
    const auto on_message = [](ssh_session, ssh_message message, void* user) {
        return self(user).interact(message);
    };
    ssh_set_server_callbacks(session_, &server_callbacks_);
    ssh_set_message_callback(session_, on_message, this);
    ssh_set_auth_methods(session_, methods());
    if (cut_ || !start() || ssh_handle_key_exchange(session_) != SSH_OK ||
        script_.cut_at == cut::key_exchange) {
        ::shutdown(socket_, SHUT_RDWR);
        return;
    }
    const ssh_event event = ssh_event_new();
    ssh_event_add_session(event, session_);
    while (!cut_ && ssh_event_dopoll(event, -1) == SSH_OK && ssh_is_connected(session_) != 0) {
        for (stream& each : streams_) {
            each.send_pending();
        }
    }
    ssh_event_remove_session(event, session_);
    ssh_event_free(event);
    if (!cut_) {
        ssh_disconnect(session_);
    }
    ::shutdown(socket_, SHUT_RDWR);
}

/// libssh closes its own descriptor; the peer's stays to be shut down.
bool ssh_peer::connection::start()
{
    const std::lock_guard lock(peer_.mutex_);
    return ssh_bind_accept_fd(static_cast<ssh_bind>(peer_.bind_), session_, ::dup(socket_)) == SSH_OK;
}

int ssh_peer::connection::methods() const
{
    int offered = 0;
    offered |= script_.public_key.empty() ? 0 : SSH_AUTH_METHOD_PUBLICKEY;
    offered |= script_.password.empty() ? 0 : SSH_AUTH_METHOD_PASSWORD;
    offered |= script_.rounds.empty() ? 0 : SSH_AUTH_METHOD_INTERACTIVE;
    return offered;
}

int ssh_peer::connection::refuse(std::string tried)
{
    peer_.note(std::move(tried));
    cut_ = cut_ || script_.cut_at == cut::login;
    return SSH_AUTH_DENIED;
}

int ssh_peer::connection::accept(std::string tried, int method)
{
    peer_.note(std::move(tried));
    accepted_methods_ |= method;
    cut_ = script_.cut_at == cut::login;
    const int needed = SSH_AUTH_METHOD_PUBLICKEY | SSH_AUTH_METHOD_PASSWORD;
    if (script_.needs_key_and_password && accepted_methods_ != needed) {
        ssh_set_auth_methods(session_, needed & ~accepted_methods_);
        return SSH_AUTH_PARTIAL;
    }
    return SSH_AUTH_SUCCESS;
}

int ssh_peer::connection::check_password(const char* password)
{
    const std::string tried = std::string("password ") + password;
    return !script_.password.empty() && password == script_.password ? accept(tried, SSH_AUTH_METHOD_PASSWORD)
                                                                     : refuse(tried);
}

int ssh_peer::connection::check_key(ssh_key key, char state)
{
    if (script_.public_key.empty() || blob_of(key) != script_.public_key) {
        return refuse("publickey");
    }
    return state == SSH_PUBLICKEY_STATE_NONE    ? SSH_AUTH_SUCCESS
           : state == SSH_PUBLICKEY_STATE_VALID ? accept("publickey", SSH_AUTH_METHOD_PUBLICKEY)
                                                : refuse("publickey");
}

std::string ssh_peer::connection::answers()
{
    std::string all;
    for (int i = 0; i < ssh_userauth_kbdint_getnanswers(session_); ++i) {
        all.append(i == 0 ? "" : ", ")
            .append(ssh_userauth_kbdint_getanswer(session_, static_cast<unsigned>(i)));
    }
    return all;
}

int ssh_peer::connection::ask(ssh_message message)
{
    std::vector<const char*> texts;
    std::vector<char> echos;
    for (const question& one : script_.rounds.at(round_)) {
        texts.push_back(one.text.c_str());
        echos.push_back(one.echo ? 1 : 0);
    }
    return ssh_message_auth_interactive_request(message, "the name", "the instruction",
                                                static_cast<unsigned>(texts.size()), texts.data(),
                                                echos.data());
}

/// Returns 1 for what is to be refused.
int ssh_peer::connection::interact(ssh_message message)
{
    if (ssh_message_type(message) != SSH_REQUEST_AUTH ||
        ssh_message_subtype(message) != SSH_AUTH_METHOD_INTERACTIVE || script_.rounds.empty()) {
        return 1;
    }
    if (ssh_message_auth_kbdint_is_response(message) == 0) {
        round_ = 0;
        return ask(message);
    }
    std::string right;
    for (const question& one : script_.rounds.at(round_)) {
        right.append(&one == &script_.rounds.at(round_).front() ? "" : ", ").append(one.answer);
    }
    const std::string given = answers();
    if (given != right) {
        refuse("interactive " + given);
        return 1;
    }
    if (++round_ < script_.rounds.size()) {
        peer_.note("interactive " + given);
        return ask(message);
    }
    accept("interactive " + given, SSH_AUTH_METHOD_INTERACTIVE);
    return ssh_message_auth_reply_success(message, 0);
}

ssh_channel ssh_peer::connection::open_channel()
{
    if (streams_.size() == script_.most_channels) {
        return nullptr;
    }
    stream& opened = streams_.emplace_back(stream{*this, ssh_channel_new(session_)});
    opened.callbacks.size = sizeof opened.callbacks;
    opened.callbacks.userdata = &opened;
    opened.callbacks.channel_subsystem_request_function = [](ssh_session, ssh_channel, const char*,
                                                             void* user) {
        return static_cast<stream*>(user)->start_subsystem();
    };
    opened.callbacks.channel_data_function = [](ssh_session, ssh_channel, void* data, std::uint32_t size, int,
                                                void* user) {
        return static_cast<stream*>(user)->take({static_cast<const char*>(data), size});
    };
    ssh_set_channel_callbacks(opened.channel, &opened.callbacks);
    cut_ = script_.cut_at == cut::channel;
    return opened.channel;
}

int ssh_peer::connection::stream::start_subsystem()
{
    const script& script = owner.script_;
    if (script.before_subsystem) {
        script.before_subsystem();
    }
    handler = script.new_channel ? script.new_channel()
                                 : [](std::string_view bytes) { return std::optional<std::string>(bytes); };
    return script.has_sftp ? 0 : 1;
}

int ssh_peer::connection::stream::take(std::string_view bytes)
{
    if (auto output = handler(bytes)) {
        pending += *output;
    } else {
        owner.cut_ = true;
    }
    return static_cast<int>(bytes.size());
}

void ssh_peer::connection::stream::send_pending()
{
    while (!pending.empty() && !owner.cut_) {
        const auto size = std::min<std::size_t>(pending.size(), ssh_channel_window_size(channel));
        const int sent =
            size == 0 ? 0 : ssh_channel_write(channel, pending.data(), static_cast<std::uint32_t>(size));
        if (sent <= 0) {
            return;
        }
        pending.erase(0, static_cast<std::size_t>(sent));
    }
}

std::string make_key_file(const std::filesystem::path& file, const std::string& type, const char* pass_phrase)
{
    const ssh_key key = generate(type);
    if (ssh_pki_export_privkey_file(key, pass_phrase, nullptr, nullptr, file.c_str()) != SSH_OK) {
        throw std::runtime_error("no key file");
    }
    std::string blob = blob_of(key);
    ssh_key_free(key);
    return blob;
}

ssh_peer::ssh_peer(script wanted)
    : script_(std::move(wanted)), bind_(ssh_bind_new()),
      listener_(io_, {boost::asio::ip::address_v4::loopback(), 0}), port_(listener_.local_endpoint().port())
{
    make_host_keys();
    acceptor_ = std::thread([this] { accept_all(); });
}

ssh_peer::~ssh_peer()
{
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        for (const auto& [socket, thread] : running_) {
            ::shutdown(socket, SHUT_RDWR);
        }
    }
    ::shutdown(listener_.native_handle(), SHUT_RDWR); // wakes the thread
    acceptor_.join();
    for (auto& [socket, thread] : running_) {
        thread.join();
        ::close(socket);
    }
    ssh_bind_free(static_cast<ssh_bind>(bind_));
}

void ssh_peer::make_host_keys()
{
    const bool no = false;
    const auto bind = static_cast<ssh_bind>(bind_);
    ssh_bind_options_set(bind, SSH_BIND_OPTIONS_PROCESS_CONFIG, &no);
    for (const std::string& name : script_.host_keys) {
        const ssh_key key = generate(name);
        host_keys_.push_back(blob_of(key));
        ssh_bind_options_set(bind, SSH_BIND_OPTIONS_IMPORT_KEY, key); // takes it
    }
}

void ssh_peer::accept_all()
{
    for (;;) {
        const int socket = ::accept4(listener_.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(mutex_);
        if (socket < 0 || ended_) {
            ::close(socket);
            return;
        }
        running_.emplace_back(socket, std::thread([this, socket] { connection(*this, socket).serve(); }));
    }
}

void ssh_peer::note(std::string tried)
{
    const std::lock_guard lock(mutex_);
    tries_.push_back(std::move(tried));
}

std::vector<std::string> ssh_peer::tries() const
{
    const std::lock_guard lock(mutex_);
    return tries_;
}

} // namespace support
