/** Looks at the machine: what an agent can and cannot see here, and what keeps it from working. It changes nothing. */
package com.quorin.sysmgt.tavl.LumetraAgent.doctor;
