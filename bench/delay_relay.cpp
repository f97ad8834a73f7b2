// delay_relay ADDRESS TARGET_ADDRESS PORT|FIRST-LAST...: a slow link. It listens at ADDRESS on the ports named
// and forwards to the same ports of TARGET_ADDRESS, holding every byte for a delay, without a limit on the
// rate. The first port belongs to an FTP server, whose data connections are expected on the ranges.
//
// A line "MILLISECONDS" on standard input sets the delay of each direction from now on and is answered with
// "connections C turns T chain N", what has been counted since the last such line:
//   turns  how often the client spoke after the server had, plus one for each connection opened
//   chain  the longest sequence of such waits in which each one followed from the one before: what cannot be
//          shortened by doing more at once
// A client believes itself connected at once. So that it pays for the round trip all the same, the server sees
// the connection, and its first bytes, as late as on a line of that length; so do the words that follow on the
// FTP connection to which a data connection belongs, since a client speaks there when the data connection is
// open. It ends with its standard input.

#include <utility> // Boost 1.74 leaves it out

#include <boost/asio.hpp>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using steady = std::chrono::steady_clock;

namespace {

struct connection;

/// What is counted between two lines of standard input.
struct tally {
    steady::duration delay{0};
    int connections = 0;
    int turns = 0;
    int client_chain = 0; // of what the client has been given
    int server_chain = 0; // of what a server has been given
    std::vector<std::weak_ptr<connection>> ftp;
};

struct chunk {
    steady::time_point due;
    std::vector<char> bytes; // empty at the end of the stream
    int chain;
};

/// One direction of a connection.
class pipe : public std::enable_shared_from_this<pipe> {
public:
    /// What a chunk that has been read is told to, and one that is about to be written.
    using handler = std::function<void(chunk&)>;

    pipe(const std::shared_ptr<connection>& whole, tcp::socket& from, tcp::socket& to, handler heard,
         handler given)
        : whole_(whole), from_(from), to_(to), heard_(std::move(heard)), given_(std::move(given)),
          timer_(from.get_executor())
    {
    }

    void read()
    {
        reading_ = true;
        from_.async_read_some(
            asio::buffer(buffer_),
            [self = shared_from_this()](error_code error, std::size_t got) { self->take(error ? 0 : got); });
    }

    void open()
    {
        open_ = true;
        write();
    }

private:
    void take(std::size_t got)
    {
        if (!whole_) {
            return;
        }
        const bool end = got == 0;
        chunk next{steady::now(), std::vector<char>(buffer_.data(), buffer_.data() + got), 0};
        heard_(next);
        if (!chunks_.empty()) {
            next.due = std::max(next.due, chunks_.back().due);
        }
        held_ += next.bytes.size();
        chunks_.push_back(std::move(next));
        reading_ = end; // for good
        if (!reading_ && held_ < most_held) {
            read();
        }
        if (open_ && !writing_) {
            write();
        }
    }

    void write()
    {
        writing_ = !chunks_.empty();
        if (!writing_) {
            return;
        }
        timer_.expires_at(chunks_.front().due);
        timer_.async_wait([self = shared_from_this()](error_code) { self->write_due(); });
    }

    void write_due()
    {
        chunk& next = chunks_.front();
        given_(next);
        if (next.bytes.empty()) {
            error_code ignored;
            to_.shutdown(tcp::socket::shutdown_send, ignored);
            whole_.reset();
            return;
        }
        asio::async_write(to_, asio::buffer(next.bytes),
                          [self = shared_from_this()](error_code error, std::size_t) { self->written(error); });
    }

    void written(error_code error)
    {
        if (error) { // what is still held has nowhere to go
            error_code ignored;
            from_.shutdown(tcp::socket::shutdown_receive, ignored);
            whole_.reset();
            return;
        }
        held_ -= chunks_.front().bytes.size();
        chunks_.pop_front();
        if (!chunks_.empty() && chunks_.front().due <= steady::now()) {
            write_due();
        } else {
            write();
        }
        if (!reading_ && held_ < most_held && whole_) {
            read();
        }
    }

    static constexpr std::size_t most_held = std::size_t{256} * 1024 * 1024;

    std::shared_ptr<connection> whole_; // until the last byte is through
    tcp::socket& from_;
    tcp::socket& to_;
    handler heard_;
    handler given_;
    asio::steady_timer timer_;
    std::deque<chunk> chunks_;
    std::vector<char> buffer_ = std::vector<char>(std::size_t{256} * 1024);
    std::size_t held_ = 0;
    bool reading_ = false;
    bool open_ = false;
    bool writing_ = false;
};

struct connection : std::enable_shared_from_this<connection> {
    connection(tcp::socket accepted, std::shared_ptr<tally> run, bool for_data)
        : counts(std::move(run)), data(for_data), client(std::move(accepted)), server(client.get_executor()),
          opening(client.get_executor())
    {
    }

    /// What is heard from the client waits for a data connection, opened now, to be there.
    void wait_for_opening()
    {
        not_before = steady::now() + 3 * counts->delay;
        chain = counts->client_chain + 1;
    }

    void start(const tcp::endpoint& target)
    {
        ++counts->connections;
        ++counts->turns;
        wait_for_opening();
        auto self = shared_from_this();
        auto up = std::make_shared<pipe>(
            self, client, server, [this](chunk& next) { client_spoke(next); },
            [this](chunk& next) { counts->server_chain = std::max(counts->server_chain, next.chain); });
        auto down = std::make_shared<pipe>(
            self, server, client, [this](chunk& next) { server_spoke(next); },
            [this](chunk& next) {
                if (!next.bytes.empty()) {
                    counts->client_chain = std::max(counts->client_chain, next.chain);
                }
            });
        up->read();
        opening.expires_at(not_before);
        opening.async_wait([self, up, down, target](error_code) {
            self->server.async_connect(target, [self, up, down](error_code error) {
                if (error) {
                    self->client.close();
                    return;
                }
                self->counts->server_chain = std::max(self->counts->server_chain, self->chain);
                self->server.set_option(tcp::no_delay(true));
                up->open();
                down->open();
                down->read();
            });
        });
    }

    void client_spoke(chunk& next)
    {
        next.due = std::max(next.due + counts->delay, not_before);
        next.chain = std::max(counts->client_chain, chain);
        if (!next.bytes.empty() || !data) { // who hangs up has waited for the last answer
            counts->turns += server_was_last ? 1 : 0;
            server_was_last = false;
        }
    }

    void server_spoke(chunk& next)
    {
        next.due += counts->delay;
        next.chain = counts->server_chain + 1;
        if (!next.bytes.empty()) {
            server_was_last = true;
        }
        // "229 Entering Extended Passive Mode (|||PORT|)"
        const std::string_view text(next.bytes.data(), next.bytes.size());
        const auto place = text.find("(|||");
        if (next.bytes.size() < 1024 && place != std::string_view::npos) {
            passive_port = std::atoi(next.bytes.data() + place + 4);
        }
    }

    std::shared_ptr<tally> counts;
    bool data;
    tcp::socket client;
    tcp::socket server;
    asio::steady_timer opening;
    steady::time_point not_before;
    int chain = 0;
    int passive_port = 0;
    bool server_was_last = false;
};

class relay {
public:
    relay(asio::io_context& context, const char* here, const char* target)
        : context_(context), here_(asio::ip::make_address(here)), target_(asio::ip::make_address(target)),
          input_(context, ::dup(0))
    {
    }

    void listen(int port, bool data)
    {
        const auto number = static_cast<std::uint16_t>(port);
        auto acceptor = std::make_shared<tcp::acceptor>(context_, tcp::endpoint(here_, number));
        if (ftp_port_ == 0) {
            ftp_port_ = port;
        }
        accept(acceptor, data);
    }

    void take_orders()
    {
        asio::async_read_until(input_, asio::dynamic_buffer(line_), '\n',
                               [this](error_code error, std::size_t size) {
                                   if (error) {
                                       context_.stop();
                                       return;
                                   }
                                   std::printf("connections %d turns %d chain %d\n", counts_->connections,
                                               counts_->turns, counts_->client_chain);
                                   std::fflush(stdout);
                                   counts_ = std::make_shared<tally>();
                                   counts_->delay = std::chrono::duration_cast<steady::duration>(
                                       std::chrono::duration<double, std::milli>(std::atof(line_.c_str())));
                                   line_.erase(0, size);
                                   take_orders();
                               });
    }

private:
    void accept(const std::shared_ptr<tcp::acceptor>& acceptor, bool data)
    {
        acceptor->async_accept([this, acceptor, data](error_code error, tcp::socket client) {
            if (error) {
                std::fprintf(stderr, "delay_relay: %s\n", error.message().c_str());
                context_.stop();
                return;
            }
            client.set_option(tcp::no_delay(true));
            const int port = acceptor->local_endpoint().port();
            auto opened = std::make_shared<connection>(std::move(client), counts_, data);
            if (data) {
                hold_back(port);
            } else if (port == ftp_port_) {
                counts_->ftp.push_back(opened);
            }
            opened->start({target_, static_cast<std::uint16_t>(port)});
            accept(acceptor, data);
        });
    }

    /// The FTP connection that was told of the port; where that was encrypted, the only one that there is.
    void hold_back(int port)
    {
        std::vector<std::shared_ptr<connection>> alive;
        for (const auto& one : counts_->ftp) {
            if (auto ftp = one.lock()) {
                alive.push_back(std::move(ftp));
            }
        }
        for (const auto& one : alive) {
            if (one->passive_port == port || alive.size() == 1) {
                one->wait_for_opening();
            }
        }
    }

    asio::io_context& context_;
    asio::ip::address here_;
    asio::ip::address target_;
    asio::posix::stream_descriptor input_;
    std::string line_;
    std::shared_ptr<tally> counts_ = std::make_shared<tally>();
    int ftp_port_ = 0;
};

} // namespace

int main(int count, char** words)
try {
    if (count < 4) {
        std::fputs("delay_relay ADDRESS TARGET_ADDRESS PORT|FIRST-LAST...\n", stderr);
        return 2;
    }
    asio::io_context context(1);
    relay all(context, words[1], words[2]);
    for (int i = 3; i < count; ++i) {
        const std::string ports = words[i];
        const auto dash = ports.find('-');
        const int last = std::stoi(ports.substr(dash == std::string::npos ? 0 : dash + 1));
        for (int port = std::stoi(ports); port <= last; ++port) {
            all.listen(port, dash != std::string::npos);
        }
    }
    all.take_orders();
    std::puts("ready");
    std::fflush(stdout);
    context.run();
} catch (const std::exception& error) {
    std::fprintf(stderr, "delay_relay: %s\n", error.what());
    return 1;
}
