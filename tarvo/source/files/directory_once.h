#pragma once

#include <functional>

#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo {

/// Fills a directory, given as a descriptor.
using FillDirectory = std::function<Result<void>(int directory)>;

/// Makes `directory` with the content that `fill` gives it, all or nothing: it appears under its
/// name in one step when `fill` has succeeded. When it is there already nothing is done; when
/// another thread or process is making it, that one is waited for and its directory used or, if it
/// failed or was killed, made here. Missing parents are made.
///
/// Layout beside `directory`, while it is being made:
///
///     .tarvo-making-<hash of the name>/lock   locked (flock) by the one who makes it
///     .tarvo-making-<hash of the name>/tree   what `fill` fills, renamed to `directory` at its end
///
/// The kernel drops the lock of a killed process, so the next one takes over and clears away the
/// tree that was left. The working directory goes with success and with failure; a kill leaves it
/// to the next maker, or to the next process that makes anything beside it. It has no content of
/// its own but these two names, so it can itself never be taken for a filled directory.
///
/// This holds for a process that ends at any moment, not for a machine that does: nothing is forced
/// to the disk, which for gigabytes of content that can be made again would cost more than making
/// them. After a power failure, files of a directory that was just made may lack content.
///
/// Errors: those of `fill`, file errors that name `directory`. Blocks for as long as the other
/// maker takes.
Result<void> MakeDirectoryOnce(const Url& directory, const FillDirectory& fill);

}  // namespace tarvo
