/** Judges a home before a start, with the library's own readers. */
package com.quorin.sysmgt.tavl.LumetraAgent.check;
