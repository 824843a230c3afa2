#include "kel/curllib.h"

#include <dlfcn.h>

#include "kel/notice.h"

namespace kel {
namespace {

template <class Function>
bool Find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  return function != nullptr;
}

/// Never closed: its threads and handlers may still be in use when the process ends.
bool Open(CurlLibrary& curl) {
  void* const library = ::dlopen(KEL_SONAME_LIBCURL, RTLD_NOW | RTLD_LOCAL);
  return library != nullptr && Find(library, "curl_global_init", curl.globalInit) &&
         Find(library, "curl_version_info", curl.versionInfo) &&
         Find(library, "curl_free", curl.free) && Find(library, "curl_easy_init", curl.easyInit) &&
         Find(library, "curl_easy_cleanup", curl.easyCleanup) &&
         Find(library, "curl_easy_setopt", curl.easySetopt) &&
         Find(library, "curl_easy_getinfo", curl.easyGetinfo) &&
         Find(library, "curl_easy_perform", curl.easyPerform) &&
         Find(library, "curl_easy_recv", curl.easyRecv) &&
         Find(library, "curl_easy_send", curl.easySend) &&
         Find(library, "curl_multi_init", curl.multiInit) &&
         Find(library, "curl_multi_cleanup", curl.multiCleanup) &&
         Find(library, "curl_multi_add_handle", curl.multiAddHandle) &&
         Find(library, "curl_multi_remove_handle", curl.multiRemoveHandle) &&
         Find(library, "curl_multi_perform", curl.multiPerform) &&
         Find(library, "curl_multi_poll", curl.multiPoll) &&
         Find(library, "curl_multi_info_read", curl.multiInfoRead) &&
         Find(library, "curl_slist_append", curl.slistAppend) &&
         Find(library, "curl_slist_free_all", curl.slistFreeAll) &&
         Find(library, "curl_url", curl.url) &&
         Find(library, "curl_url_cleanup", curl.urlCleanup) &&
         Find(library, "curl_url_dup", curl.urlDup) && Find(library, "curl_url_get", curl.urlGet) &&
         Find(library, "curl_url_set", curl.urlSet);
}

/// False. The transfers that fail only say that there was no connection.
bool NoticeMissing() {
  const char* const reason = ::dlerror();
  Notice("Tamber", reason != nullptr ? reason : KEL_SONAME_LIBCURL);
  return false;
}

}  // namespace

const CurlLibrary* Curl() {
  static CurlLibrary curl{};
  static const bool opened = Open(curl) || NoticeMissing();
  return opened ? &curl : nullptr;
}

}  // namespace kel
