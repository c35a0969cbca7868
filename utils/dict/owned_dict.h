// OwnedDict: an options dictionary that is deleted when it goes out of scope.

#ifndef RUBRUF_UTILS_DICT_OWNED_DICT_H_
#define RUBRUF_UTILS_DICT_OWNED_DICT_H_

#include <memory>

#include "utils/dict/dict.h"

struct DeleteDict {
  void operator()(tev_dict_t* dict) const { tev_dict_delete(dict); }
};
using OwnedDict = std::unique_ptr<tev_dict_t, DeleteDict>;

#endif  // RUBRUF_UTILS_DICT_OWNED_DICT_H_
