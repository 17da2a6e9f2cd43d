#include "fastpath/fast_path.hpp"

#include "fastpath/udp/udp_workers.hpp"

namespace olv_fastpath {

fast_path::fast_path(olv_sim::processor &processor, const fast_path_options &options)
    : udp_(std::make_unique<udp_workers>(processor, options))
{}

fast_path::~fast_path() = default;

std::size_t fast_path::add(const olv_net::socket_address &address, const packet_path &path)
{
    return udp_->add(address, path);
}

void fast_path::remove(std::size_t listener)
{
    udp_->remove(listener);
}

void fast_path::set_path(std::size_t listener, const packet_path &path)
{
    udp_->set_path(listener, path);
}

packet_path fast_path::path(std::size_t listener) const
{
    return udp_->path(listener);
}

olv_net::socket_address fast_path::local_address(std::size_t listener) const
{
    return udp_->local_address(listener);
}

void fast_path::start()
{
    udp_->start();
}

void fast_path::stop()
{
    udp_->stop();
}

bool fast_path::running() const
{
    return udp_->running();
}

listener_statistics fast_path::statistics() const
{
    return udp_->statistics();
}

listener_statistics fast_path::statistics(std::size_t listener) const
{
    return udp_->statistics(listener);
}

std::vector<session_summary> fast_path::sessions() const
{
    return udp_->sessions();
}

std::uint32_t fast_path::clear_sessions(std::optional<std::uint32_t> responder_id)
{
    return udp_->clear_sessions(responder_id);
}

std::uint64_t fast_path::sessions_that_gave_way() const
{
    return udp_->sessions_that_gave_way();
}

} // namespace olv_fastpath
