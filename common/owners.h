// Whom the files belong to that several programs share. The web programs run as an unprivileged user, the owner of the
// folder of scripts ("/mnt/application/pavo/tmp"); where root makes a file or folder that they have to change or replace as
// well, it is given to that user. What is the daemon's own stays root's, and what another one has put in its place is
// not taken for it. Started by anybody but root, a program shares nothing: all belongs to one user then.
#ifndef PAVO_COMMON_OWNERS_H
#define PAVO_COMMON_OWNERS_H

#include <sys/types.h>

#include <string_view>

namespace pavo {

// Files that the daemon alone writes.
bool isDaemonsOwn(std::string_view fixedPath);

// open(); what is made by it is shared unless it is the daemon's own. An existing file is opened without O_CREAT, which
// the kernel may refuse in a folder open to everybody when it is another user's.
int openShared(std::string_view fixedPath, int flags, mode_t mode);

// mkdir(); false with errno when it is not made.
bool makeSharedFolder(std::string_view fixedPath, mode_t mode);

}  // namespace pavo

#endif
