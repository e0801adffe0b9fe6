// Uses the pool's page and so keeps ostpool from being unloaded.
#include "demo.h"
#include "ostpool.h"

MODULE_DESCRIPTION("Ostrel tests: a user of the pool");

static unsigned long held;

static int __init ostholder_init(void)
{
	held = ostpool_page();
	return held ? 0 : -ENODATA;
}

static void __exit ostholder_exit(void)
{
}

module_init(ostholder_init);
module_exit(ostholder_exit);
