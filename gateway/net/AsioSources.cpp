// The one place where the networking libraries' own code is compiled.
#include <boost/asio/impl/src.hpp>
#include <boost/beast/src.hpp>
