#include "transport/protocol_handler_spec.h"

#include "transport/endpoint_text.h"

namespace Lumo::Transport::Http {

namespace {
constexpr std::uint64_t kDefaultBodySizeLimit = 2500000;
}  // namespace

ProtocolHandlerSpec::ProtocolHandlerSpec()
    : localizer(L10n::LocalizerHelpers::GetDefaultLocalizer()),
      httpBodySizeLimitInBytes(kDefaultBodySizeLimit),
      errToHeaders(ErrToHeaders),
      peerInfo(GetPeerInfo) {}

}  // namespace Lumo::Transport::Http
