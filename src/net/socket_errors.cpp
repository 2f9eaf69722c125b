#include "net/socket_errors.h"

#include <netdb.h>

#include <array>
#include <cerrno>

namespace skyreel {

namespace {

struct TSocketError {
  int Number;
  int Errno;  ///< the system's number for the same failure; 0: none
  const char* Text;
};

constexpr std::array<TSocketError, 51> kSocketErrors = {{
    {10004, EINTR, "Interrupted system call"},
    {10009, EBADF, "Bad file number"},
    {10013, EACCES, "Permission denied"},
    {10014, EFAULT, "Bad address"},
    {10022, EINVAL, "Invalid argument"},
    {10024, EMFILE, "Too many open files"},
    {10035, EAGAIN, "Operation would block"},
    {10036, EINPROGRESS, "Operation now in progress"},
    {10037, EALREADY, "Operation already in progress"},
    {10038, ENOTSOCK, "Socket operation on non-socket"},
    {10039, EDESTADDRREQ, "Destination address required"},
    {10040, EMSGSIZE, "Message too long"},
    {10041, EPROTOTYPE, "Wrong protocol type for socket"},
    {10042, ENOPROTOOPT, "Bad protocol option"},
    {10043, EPROTONOSUPPORT, "Protocol not supported"},
    {10044, ESOCKTNOSUPPORT, "Socket type not supported"},
    {10045, EOPNOTSUPP, "Operation not supported on socket"},
    {10046, EPFNOSUPPORT, "Protocol family not supported"},
    {10047, EAFNOSUPPORT, "Address family not supported by protocol family"},
    {10048, EADDRINUSE, "Address already in use"},
    {10049, EADDRNOTAVAIL, "Can't assign requested address"},
    {10050, ENETDOWN, "Network is down"},
    {10051, ENETUNREACH, "Network is unreachable"},
    {10052, ENETRESET, "Network dropped connection or reset"},
    {10053, ECONNABORTED, "Software caused connection abort"},
    {10054, ECONNRESET, "Connection reset by peer"},
    {10055, ENOBUFS, "No buffer space available"},
    {10056, EISCONN, "Socket is already connected"},
    {10057, ENOTCONN, "Socket is not connected"},
    {10058, ESHUTDOWN, "Can't send after socket shutdown"},
    {10059, ETOOMANYREFS, "Too many references, can't splice"},
    {10060, ETIMEDOUT, "Connection timed out"},
    {10061, ECONNREFUSED, "Connection refused"},
    {10062, ELOOP, "Too many levels of symbolic links"},
    {10063, ENAMETOOLONG, "File name too long"},
    {10064, EHOSTDOWN, "Host is down"},
    {10065, EHOSTUNREACH, "No route to Host"},
    {10066, ENOTEMPTY, "Directory not empty"},
    {10067, 0, "Too many processes"},
    {10068, EUSERS, "Too many users"},
    {10069, EDQUOT, "Disc quota exceeded"},
    {10070, ESTALE, "Stale NFS file handle"},
    {10071, EREMOTE, "Too many levels of remote in path"},
    {10091, 0, "Network subsystem is unavailable"},
    {10092, 0, "Incompatible version of WINSOCK.DLL"},
    {10093, 0, "Successful WSAStartup not yet performed"},
    {11001, 0, "Host not found"},
    {11002, 0, "Non-Authoritative Host not found"},
    {11003, 0, "Non-Recoverable error: FORMERR, REFUSED, NOTIMP"},
    {11004, 0, "Valid name, no data record of requested type"},
    {0, 0, "Unrecognized error code"},
}};

}  // namespace

int SocketErrorFromErrno(int error) {
  // Failures that the table holds under another name.
  switch (error) {
    case 0:
      return 0;
    case EPIPE:
      return 10053;
    case EPERM:
      return 10013;
    case ENFILE:
      return 10024;
    case ENOMEM:
      return 10055;
    case EPROTO:
      return 10053;
    default:
      break;
  }
  for (const TSocketError& row : kSocketErrors) {
    if (row.Errno == error) return row.Number;
  }
  return 20000 + error;
}

int SocketErrorFromLookup(int eai_error) {
  switch (eai_error) {
    case EAI_AGAIN:
      return 11002;
    case EAI_FAIL:
      return 11003;
#ifdef EAI_NODATA
    case EAI_NODATA:
      return 11004;
#endif
#ifdef EAI_ADDRFAMILY
    case EAI_ADDRFAMILY:
      return 11004;
#endif
    default:
      return 11001;
  }
}

std::string SocketErrorMessage(int number) {
  if (number == 0) return "";
  for (const TSocketError& row : kSocketErrors) {
    if (row.Number == number) return std::to_string(number) + ":" + row.Text;
  }
  return "Unknown Error No. " + std::to_string(number);
}

}  // namespace skyreel
