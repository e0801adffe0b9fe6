// The page of the pool, for other modules of the product; it stays theirs for as long as they are loaded.
unsigned long ostpool_page(void);
