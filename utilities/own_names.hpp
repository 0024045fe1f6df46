// SPDX-License-Identifier: Apache-2.0
// The compiler includes this file before every source file of the library (src/CMakeLists.txt).
//
// Some calls of the interface have plain names, and a program may have functions of its own with
// the same names. So the library defines and calls them by its own names. The plain names are weak
// aliases: a program that is linked with the archive may define its own functions with these names,
// and the library never calls those.
#pragma once

#pragma redefine_extname ap_download_gpb zot_own_ap_download_gpb
#pragma redefine_extname ap_download_k zot_own_ap_download_k
#pragma redefine_extname calc_sha256 zot_own_calc_sha256
#pragma redefine_extname chk_and_mkdir zot_own_chk_and_mkdir
#pragma redefine_extname cmd_helper_system zot_own_cmd_helper_system
#pragma redefine_extname cmp_file_sha256 zot_own_cmp_file_sha256
#pragma redefine_extname cmp_int zot_own_cmp_int
#pragma redefine_extname cmp_uint64 zot_own_cmp_uint64
#pragma redefine_extname fcopy zot_own_fcopy
#pragma redefine_extname fcopy_stat zot_own_fcopy_stat
#pragma redefine_extname free_file_mmap zot_own_free_file_mmap
#pragma redefine_extname get_cat_str_by_gpb_cat zot_own_get_cat_str_by_gpb_cat
#pragma redefine_extname get_file_type zot_own_get_file_type
#pragma redefine_extname get_gpb_cat_by_cat_str zot_own_get_gpb_cat_by_cat_str
#pragma redefine_extname get_gpb_meta_by_path zot_own_get_gpb_meta_by_path
#pragma redefine_extname get_gpb_meta_str zot_own_get_gpb_meta_str
#pragma redefine_extname get_json_item zot_own_get_json_item
#pragma redefine_extname get_remote_file zot_own_get_remote_file
#pragma redefine_extname get_remote_file_set zot_own_get_remote_file_set
#pragma redefine_extname get_remote_file_set_stat zot_own_get_remote_file_set_stat
#pragma redefine_extname get_remote_file_stat zot_own_get_remote_file_stat
#pragma redefine_extname get_subsys_str_by_enum zot_own_get_subsys_str_by_enum
#pragma redefine_extname list_add_tail zot_own_list_add_tail
#pragma redefine_extname list_del zot_own_list_del
#pragma redefine_extname mkdir_r zot_own_mkdir_r
#pragma redefine_extname print_cjson zot_own_print_cjson
#pragma redefine_extname read_file zot_own_read_file
#pragma redefine_extname read_file_mmap zot_own_read_file_mmap
#pragma redefine_extname read_line zot_own_read_line
#pragma redefine_extname rm_rf zot_own_rm_rf
#pragma redefine_extname sha256_hash_str zot_own_sha256_hash_str
#pragma redefine_extname str2upper zot_own_str2upper
#pragma redefine_extname write_file zot_own_write_file

// Declares the plain name of a function. Used in the file that defines the function.
#define ZOT_PLAIN_NAME(name)                            \
  extern "C" [[gnu::weak, gnu::alias("zot_own_" #name), \
               gnu::visibility("default")]] decltype(::name) zot_plain_##name __asm__(#name)
