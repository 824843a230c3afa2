#pragma once

#include <curl/curl.h>

namespace kel {

/// The functions of libcurl that we use. The library is opened when the first address or transfer
/// needs it: it brings some thirty others along, whose loading would take most of the time in which
/// a short script starts and ends.
struct CurlLibrary {
  decltype(&::curl_global_init) globalInit;
  decltype(&::curl_version_info) versionInfo;
  decltype(&::curl_free) free;
  decltype(&::curl_easy_init) easyInit;
  decltype(&::curl_easy_cleanup) easyCleanup;
  decltype(&::curl_easy_setopt) easySetopt;
  decltype(&::curl_easy_getinfo) easyGetinfo;
  decltype(&::curl_easy_perform) easyPerform;
  decltype(&::curl_easy_recv) easyRecv;
  decltype(&::curl_easy_send) easySend;
  decltype(&::curl_multi_init) multiInit;
  decltype(&::curl_multi_cleanup) multiCleanup;
  decltype(&::curl_multi_add_handle) multiAddHandle;
  decltype(&::curl_multi_remove_handle) multiRemoveHandle;
  decltype(&::curl_multi_perform) multiPerform;
  decltype(&::curl_multi_poll) multiPoll;
  decltype(&::curl_multi_info_read) multiInfoRead;
  decltype(&::curl_slist_append) slistAppend;
  decltype(&::curl_slist_free_all) slistFreeAll;
  decltype(&::curl_url) url;
  decltype(&::curl_url_cleanup) urlCleanup;
  decltype(&::curl_url_dup) urlDup;
  decltype(&::curl_url_get) urlGet;
  decltype(&::curl_url_set) urlSet;
};

/// Null when the machine has no such library.
const CurlLibrary* Curl();

}  // namespace kel
