/** What the library publishes of a run, and what follows from it for a resource: facts, state, words. */
package com.quorin.sysmgt.tavl.LumetraAgent.resource;
