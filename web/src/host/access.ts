/** Whether the host asks for a token before it tells anything. False when it cannot be reached. */
export async function asksForToken(): Promise<boolean> {
  try {
    const response = await fetch("/api/v1/modules");
    return response.status === 401;
  } catch {
    return false;
  }
}

/** Opens a session with the host's token; false when it is not the right one. */
export async function logIn(token: string): Promise<boolean> {
  try {
    const response = await fetch("/login", {
      method: "POST",
      headers: { "content-type": "application/json" },
      body: JSON.stringify({ token }),
    });
    return response.ok;
  } catch {
    return false;
  }
}
