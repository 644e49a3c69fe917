// The host's password check.
#pragma once

struct passwd;

/// Verifies a user name and password against the PAM stack of `service`: the password, that the account may
/// be used, and that its credentials can be set. Gives the user's record of the password database in one
/// block that the caller frees with free(); null for every failure, which only the log tells.
///
/// The PAM library is loaded at the first call, and again at the next one as long as that fails. I/O thread
/// only, and not from within a PAM module: the conversation's state is static. Blocks for as long as the
/// modules take.
passwd* Auth_AuthenticateUserPAM(char const* user, char const* password, char const* service);
