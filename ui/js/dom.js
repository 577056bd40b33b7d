// Small DOM helpers shared by the page's modules.

// The element with this id (the page's markup holds every id the scripts use).
export const byId = (id) => document.getElementById(id);
