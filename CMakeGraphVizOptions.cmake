# What `cmake --graphviz` draws for docs/targets.svg (scripts/architecture_diagram.sh): the
# shipped targets and how they link, without test programs, fixtures and system libraries.
set(GRAPHVIZ_GRAPH_NAME "lmxcore targets")
set(GRAPHVIZ_EXTERNAL_LIBS FALSE)
set(GRAPHVIZ_GENERATE_PER_TARGET FALSE)
set(GRAPHVIZ_GENERATE_DEPENDERS FALSE)
set(GRAPHVIZ_IGNORE_TARGETS ".*_tests?$" ".*test.*" ".*fixture.*" "fake_.*" ".*_child$" "lmx_options" "gtest.*" "gmock.*")
