# SPDX-License-Identifier: MIT
"""Which tests look at which object of the libraries; those that end first stand first."""

import re

# (pattern of an object, test programs). The first pattern that fits counts.
_PROGRAMS = [
    (r"simd/\w+/product\w*\.cpp", "path_extremes_test pointwise_test conv_test network_steps_test"),
    (r"simd/\w+/convolution\.cpp", "path_extremes_test conv_test network_steps_test"),
    (r"simd/\w+/plane\.cpp", "path_extremes_test conv_test network_steps_test find_network_steps_test"),
    (r"simd/\w+/depthwise\.cpp", "path_extremes_test depthwise_test depthwise_padding_test depthwise_null_test "
                                 "network_steps_test find_network_steps_test"),
    (r"simd/\w+/pooling\.cpp", "pool_in_place_test pool_test path_extremes_test network_steps_test"),
    (r"simd/\w+/elementwise\.cpp", "elementwise_test path_extremes_test network_steps_test"),
    (r"simd/\w+/routines\.cpp", "path_choice_test machine_paths_test tile_permission_test path_extremes_test "
                                "depthwise_test pool_test elementwise_test"),
    (r"arma_conv\.cpp", "conv_test path_extremes_test network_steps_test"),
    (r"arma_conv_hwc\.cpp", "conv_hwc_test"),
    (r"arma_distance\.cpp", "distance_test distances_test search_api_test device_api_test"),
    (r"arma_dwconv\.cpp|convolutiondepthwise_3x3_int8\.cpp|depthwise_shared\.cpp",
     "depthwise_null_test depthwise_padding_test depthwise_test path_extremes_test network_steps_test "
     "find_network_steps_test"),
    (r"arma_elementwise\.cpp", "elementwise_test network_steps_test"),
    (r"arma_pointwise\.cpp", "pointwise_test network_steps_test find_network_steps_test"),
    (r"arma_pool\.cpp", "pool_in_place_test pool_test network_steps_test"),
    (r"arma_reduce\.cpp", "reduce_test network_steps_test"),
    (r"equal_planes\.cpp", "conv_test network_steps_test"),
    (r"compute_a/routines\.cpp", "lesser_processor_test path_choice_test machine_paths_test tile_permission_test "
                                 "path_extremes_test core_api_test"),
    (r"sgemm_relayout\.cpp", "sgemm_relayout_test"),
    (r"cipher/traces\.cpp|claim_pages\.cpp", "claimed_pages_test traces_test core_api_test find_api_test"),
    (r"store_opening\.cpp", "store_opening_test claimed_pages_test traces_test core_api_test find_api_test"),
    (r"cipher/(white_box|custom_data)\.cpp",
     "custom_data_test white_box_test cbc_attacks_test white_box_faults_test white_box_tables_test store_opening_test "
     "traces_test"),
    (r"cipher/gcm\.cpp", "gcm_test gcm_openssl_test gcm_attacks_test"),
    (r"cipher/", "wipe_test aes_test gcm_test store_opening_test aes_comparison_test traces_test"),
    (r"common/affine_warp\.cpp", "affine_warp_test"),
    (r"common/bounded_memory\w*\.cpp", "bounded_memory_test bounded_defined_test own_names_test"),
    (r"common/image_nearest\.cpp", "image_nearest_test"),
    (r"common/image_resize\.cpp", "image_resize_test"),
    (r"device_api/", "device_api_test device_api_core_answers_test device_api_mutex_fault_test "
                    "device_api_threads_test"),
    (r"fr_demo/(align|fr)_32\.cpp", "network_steps_test core_api_test network_memory_test"),
    (r"fr_demo/\w+_registry\.cpp", "registry_test core_api_test layer_list_test"),
    (r"fr_demo/", "core_api_test network_steps_test network_memory_test device_api_core_answers_test"),
    (r"find/", "find_recognise_test find_levels_test find_quality_test find_look_test find_faces_test find_upright_test find_reasons_test "
               "find_api_test find_network_steps_test find_whole_run_test"),
    (r"grey/structure\.cpp", "structure_test"),
    (r"grey/", "scale_plane_test platform_test"),
    (r"host/media_pool\.cpp", "media_pool_test platform_test platform_address_limit_test"),
    (r"host/", "platform_test platform_no_memory_test platform_threads_test platform_address_limit_test"),
    (r"search/", "distances_test search_api_test"),
]
# The objects of the libraries, by the folders of their targets.
_LIBRARIES = re.compile(r"\b(kova_fr_objects|kova_find_objects|kova_find_shared_sources|kova_mpi_host|orvo_search|"
                        r"kova_search_objects|orvo_grey)\.dir/")
_PATH = re.compile(r"compute_a/simd/(\w+)/")
# Programs that run on every path, and those that run with every cipher.
_ON_PATHS = {"conv_test", "pointwise_test", "depthwise_test", "depthwise_padding_test", "depthwise_null_test",
             "conv_hwc_test", "reduce_test", "elementwise_test", "pool_in_place_test", "pool_test", "path_extremes_test",
             "network_steps_test", "find_network_steps_test"}
_WITH_CIPHERS = {"aes_test", "store_opening_test"}
_CIPHERS = {"aes_look_up": "look_up", "aes_ni": "instructions", "aes_vaes": "wide_instructions", "aes128": "plain"}


def _place(target):
    """Where the object's source lies, without the folders that CMake puts between."""
    return re.sub(r"CMakeFiles/\w+\.dir/|__/", "", target)


def is_of_library(target):
    return bool(_LIBRARIES.search(target))


def runs_of(targets):
    """[(program, environment variable with its value, or "")] for objects that a change may have touched."""
    runs = []
    for target in targets:
        path, cipher = _PATH.search(target), re.search(r"cipher/(\w+)\.cpp", target)
        for pattern, programs in _PROGRAMS:
            if re.search(pattern, _place(target)):
                break
        else:
            raise SystemExit(f"programs.py names no test for {target}")
        for program in programs.split():
            if path and program in _ON_PATHS:
                runs.append((program, f"ORVO_FR_PATH={path[1]}"))
                continue
            runs.append((program, ""))
            if cipher and program in _WITH_CIPHERS and cipher[1] in _CIPHERS:
                runs.append((program, f"ORVO_FR_CIPHER={_CIPHERS[cipher[1]]}"))
            if program in _ON_PATHS and "/compute_a/" in target:
                runs.append((program, "ORVO_FR_PATH=plain"))
    return list(dict.fromkeys(runs))
