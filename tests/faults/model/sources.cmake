# The steps, the model and the comparison, shared by the random sequences here and by the fuzzer.
set(zotconf_model_dir ${CMAKE_CURRENT_LIST_DIR})
set(zotconf_model_sources
  ${zotconf_model_dir}/catalogue.cpp
  ${zotconf_model_dir}/check.cpp
  ${zotconf_model_dir}/disk.cpp
  ${zotconf_model_dir}/file_adapter.cpp
  ${zotconf_model_dir}/model.cpp
  ${zotconf_model_dir}/model_get.cpp
  ${zotconf_model_dir}/model_marks.cpp
  ${zotconf_model_dir}/steps.cpp
  ${zotconf_model_dir}/world.cpp)
