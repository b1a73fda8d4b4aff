file(REMOVE_RECURSE ${STAGE}/moved)
file(RENAME ${STAGE}/first ${STAGE}/moved)
