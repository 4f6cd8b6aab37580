# pdf_bench: the report of 500 records with 50 photos against pdfkit laying
# out the same content; bench/pdf.sh runs both in the same run.
find_package(nlohmann_json REQUIRED)
add_executable(pdf_bench ${CMAKE_CURRENT_LIST_DIR}/pdf_bench.cpp)
target_link_libraries(pdf_bench PRIVATE lumeo-backup nlohmann_json::nlohmann_json)
