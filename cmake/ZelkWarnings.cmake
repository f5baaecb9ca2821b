# Warnings are errors everywhere, in every configuration.
add_compile_options(-Wall -Wextra -Werror)
