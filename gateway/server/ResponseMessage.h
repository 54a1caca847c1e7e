#pragma once

#include "gateway/http/Http.h"

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

namespace gk::gateway {

/// An answer as it goes over the connection: with the fields that keep browsers from doing more
/// with it than it is meant for, and that let nobody store it unless it says so itself. `version`:
/// 10 or 11, as in the request. `isHead`: its body stays here. `isLast`: the connection ends with
/// it.
boost::beast::http::response<boost::beast::http::string_body>
responseMessage(HttpResponse response, unsigned version, bool isHead, bool isLast);

} // namespace gk::gateway
